#pragma once

#include "backend/Answerer.h"
#include "history/CaptureSession.h"
#include "page/AppTheme.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>

/// The response pages and the scripts pushed into them, as text. Pure functions without state,
/// usable from any thread. Pages are UTF-8 bytes, because a thread's screenshots make them large.
///
/// Answers are data: a page carries them as JSON in an element that the engine does not run, and
/// its policy admits no script but the bundled ones.
namespace quellora::responsepage {

/// What a page looks like.
struct PageAppearance
{
    AppTheme theme = AppTheme::Dark;
    /// Opacity of the window, 0 to 1.
    double alpha = 1;
    /// The user's text colour, e.g. "#8899aa".
    std::optional<QString> textColorHex;
    /// The capture hot key in its display form.
    QString captureHotkey;
    /// Name of the answering assistant.
    QString answererName = givenAnswerer;
};

/// Gives the address at which the page finds a screenshot.
using PictureAddress = std::function<QString(const CaptureSession::Screenshot &)>;

/// Id of the element that receives a streamed answer.
inline constexpr const char *streamingElementId = "streaming-response";

/// What stands between the quotes of a JSON string that means @p text, "<" escaped as well: the
/// string is safe inside a script element. Texts may be escaped piece by piece.
QString escapedForJson(const QString &text);
/// Text for HTML content and quoted attributes.
QString escapedForHtml(const QString &text);

/// Shortest decimal text that reads back as @p value, never in exponent form.
QString shortestDecimal(double value);
/// As shortestDecimal(), with ".0" after a whole number.
QString defaultDecimal(double value);
/// Values of --pill-alpha and --code-alpha for a window opacity of 0 to 1.
double pillAlpha(double windowAlpha);
double codeAlpha(double windowAlpha);

/// A moment as a thread page shows it, in local time: "Nov 21, 9:05 AM".
QString threadTimestamp(const QDateTime &time);

/// What the hint says after the capture hot key.
QString hintEnd(const QString &answererName);
/// What the thinking indicator says.
QString thinkingText(const QString &answererName);
/// The page of one answer, of the hint (blank @p markdown) or of the thinking indicator
/// ("__LOADING__").
QByteArray singleAnswerPage(const QString &markdown, const PageAppearance &appearance);
/// The page of a thread that has screenshots but no notes and no turns.
QByteArray screenshotOnlyPage(const CaptureSession &session, const PageAppearance &appearance,
                              const PictureAddress &address);
/// The page of a thread with at least one entry.
QByteArray threadPage(const CaptureSession &session, const PageAppearance &appearance,
                      const PictureAddress &address);
/// The thread so far, if any, with the new question and an empty slot for its answer.
/// @param replaced the turn whose place they take; a turn that is not in the thread for the end
QByteArray streamingShellPage(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const PageAppearance &appearance, const PictureAddress &address,
                              const QUuid &replaced = {});

/// One entry of a thread page, without the divider.
QByteArray entryBodyHTML(const ThreadEntry &entry, const CaptureSession &session,
                         const PictureAddress &address);

/// Applies theme, text colour and code style to a loaded page.
QString themeScript(const PageAppearance &appearance);
/// Shows the capture hot key and the name of who answers in the hint and the thinking indicator of
/// a loaded page; nothing in pages without the hint.
QString hintScript(const PageAppearance &appearance);
/// Applies the opacity-derived variables to a loaded page.
QString pillAlphaScript(double windowAlpha);
/// Takes the loading dots away.
QString hideLoadingScript();
/// Adds @p text to the streamed answer and scrolls to the bottom.
QString streamAppendScript(const QString &text);
/// Completes the streamed answer: its code is highlighted and its elements are those of a loaded
/// page.
QString streamFinishScript();
/// Makes the entry of a completed streamed answer the entry of @p turn.
QString streamedTurnScript(const CaptureSession::Turn &turn);
/// Scrolls by @p pixels, down when positive.
QString scrollByScript(double pixels);
/// Scrolls to @p fraction of the scrollable extent, 0 to 1.
QString scrollToFractionScript(double fraction);

} // namespace quellora::responsepage
