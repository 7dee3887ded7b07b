#pragma once

#include "history/CaptureSession.h"
#include "page/AppTheme.h"
#include "page/PageSurface.h"
#include "page/PillAlphaThrottle.h"
#include "page/PreviewFiles.h"
#include "page/ResponsePage.h"

#include <QHash>
#include <QObject>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <optional>

namespace quellora {

class Workspace;

/// Shows answers and threads in the response area: decides which page is loaded, pushes theme,
/// text colour and transparency into it and validates what it posts. Main thread only; pages
/// are built on a worker.
class ResponseDisplay : public QObject
{
    Q_OBJECT

public:
    /// Identifies one requested page; 0 is none.
    using PageId = quint64;

    struct Timing
    {
        /// Monotonic time, for the throttling of live opacity changes.
        PillAlphaThrottle::Clock clock;
    };

    /// What is on a page.
    enum class Content {
        /// The hint, or nothing yet.
        Hint,
        /// A page that is not part of the thread, such as an error.
        Message,
        Thread,
    };

    /// @param surface shows the pages; @param workspace opens screenshots and links;
    /// @param temporaryDirectory holds preview files. The references must outlive this object.
    ResponseDisplay(PageSurface &surface, Workspace &workspace, const QString &temporaryDirectory,
                    Timing timing, QObject *parent = nullptr);
    ResponseDisplay(PageSurface &surface, Workspace &workspace, const QString &temporaryDirectory,
                    QObject *parent = nullptr);
    /// Removes the previews; blocks until that is done.
    ~ResponseDisplay() override;

    AppTheme appliedTheme() const { return m_appearance.theme; }
    double currentAlpha() const { return m_appearance.alpha; }
    const std::optional<QString> &responseTextColorHex() const { return m_appearance.textColorHex; }

    /// The setters affect the next page and the next push; they push nothing themselves.
    void setAppliedTheme(AppTheme theme) { m_appearance.theme = theme; }
    /// @param alpha window opacity, 0 to 1
    void setCurrentAlpha(double alpha) { m_appearance.alpha = alpha; }
    /// Anything that is not a hex colour clears the colour.
    void setResponseTextColorHex(const std::optional<QString> &color);
    /// @param display the capture hot key in its display form
    void setCaptureHotkey(const QString &display) { m_appearance.captureHotkey = display; }
    /// The name of the answering assistant in the hint and the thinking indicator.
    void setAnswererName(const QString &name) { m_appearance.answererName = name; }
    const QString &answererName() const { return m_appearance.answererName; }

    /// Shows one answer; blank text shows the hint, "__LOADING__" the thinking indicator.
    PageId loadContent(const QString &markdown);
    /// Shows a whole thread.
    /// @param keepPage if given, called in place of the load: it turns the page on show, which has
    ///        the same content, into the thread's page
    PageId renderThread(const CaptureSession &session,
                        const std::function<void()> &keepPage = nullptr);
    /// Writes the log line of a page that has finished loading.
    static void logPageFinished();
    /// Shows the thread so far with a new question and an empty answer slot.
    /// @param replaced the turn whose place they take, if any
    PageId loadStreamingShell(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const QUuid &replaced = {});
    /// The page requested last.
    PageId latestPage() const { return m_latestPage; }
    /// Removes the pictures of deleted threads from the temporary folder.
    void removePreviews(const QSet<QUuid> &threads);
    /// Removes a picture that is no longer in its thread from the temporary folder.
    void removePreview(const QUuid &threadId, qint64 index);
    /// Removes every picture from the temporary folder; blocks until that is done.
    void removeAllPreviews();
    /// Whether the page on show or the one being loaded shows this picture.
    bool showsScreenshot(const QUuid &threadId, qint64 index) const;

    /// What the page requested last shows.
    Content content() const { return m_content; }

    /// Pushes theme, text colour and code style into the page shown.
    void applyTheme();
    /// Pushes the capture hot key and the assistant's name into the page if it shows the hint.
    void pushHint();
    /// Pushes the opacity-derived variables into the page shown.
    void pushPillAlphaLive();
    /// As pushPillAlphaLive(), at most once per 1/30 s.
    void pushPillAlphaLiveThrottled();

    /// Scroll commands of the scrollbar; pixels are positive downwards, the fraction is 0 to 1.
    Q_INVOKABLE void scrollUp();
    Q_INVOKABLE void scrollDown();
    Q_INVOKABLE void scrollByPixels(double pixels);
    Q_INVOKABLE void scrollToFraction(double fraction);

    /// Marks a text's occurrences in the page and in the pages that replace it, and scrolls to the
    /// first one from the visible part on; a blank text has none. Answered by findResultChanged(),
    /// again when the page grows.
    void find(const QString &text);
    /// As find() from the page on that is being loaded, which scrolls to the first occurrence in
    /// the note or turn @p entry; without one there, to the entry.
    void findInNextPage(const QString &text, const QUuid &entry);
    /// Scrolls to the next or previous occurrence, around the ends.
    void findNext();
    void findPrevious();
    /// Removes the marks.
    void endFind();

    /// The surface, for scripts of the streaming render.
    PageSurface &surface() { return m_surface; }

Q_SIGNALS:
    /// content() has changed.
    void contentChanged();
    /// The page scrolled, grew or was resized. @p enabled: the content overflows; @p thumbRatio:
    /// visible part of the content; @p fraction: position, 0 at the top, 1 at the bottom.
    void scrollPositionChanged(bool enabled, double thumbRatio, double fraction);
    /// Emitted with every scrollPositionChanged(): whether the end of the content is visible.
    void endVisibilityChanged(bool isEndVisible);
    /// @param current number of the occurrence scrolled to, from 1 on; 0 without one
    void findResultChanged(int current, int total);
    /// A picture that the user wants to open could not be written.
    void previewFailed();
    /// The user asked to delete a note. The id is well-formed but need not exist.
    void noteDeleteRequested(const QUuid &noteId);
    /// The user asked for another version of a turn. The id is well-formed; neither it nor the
    /// position need exist.
    void versionRequested(const QUuid &turnId, qint64 position);
    /// A page requested here has finished loading.
    void pageFinished(quellora::ResponseDisplay::PageId page);

private:
    /// The pictures of a thread that a page shows.
    struct Pictures
    {
        QUuid threadId;
        QHash<qint64, QByteArray> images;
    };
    using Build = std::function<QByteArray(const responsepage::PageAppearance &,
                                           const responsepage::PictureAddress &)>;

    PageId show(Content content, const QUuid &threadId, Build build, const QString &logLine);
    void onBuilt(PageId page, const QUuid &threadId, const PageContent &built,
                 const responsepage::PageAppearance &appearance, const QString &logLine);
    void onLoadFinished(PageSurface::LoadId id);
    void onMessage(const QString &name, const QVariant &body);
    void onScrollPosition(const QVariant &body);
    void onOpenScreenshot(const QVariant &body);
    void onNoteDelete(const QVariant &body);
    void onShowVersion(const QVariant &body);
    void onFindResult(const QVariant &body);
    void pushFind(bool isScrolledTo, const QUuid &entry = {});
    void onLinkActivated(const QString &address);

    PageSurface &m_surface;
    Workspace &m_workspace;
    /// Used on the builder's thread, except for the paths.
    const std::shared_ptr<PreviewFiles> m_files;
    /// Pictures of the page on show and of the one that is replacing it.
    QHash<PageSurface::LoadId, Pictures> m_pictures;
    responsepage::PageAppearance m_appearance;
    /// Appearance with which the page being loaded or shown was built.
    responsepage::PageAppearance m_builtAppearance;
    Content m_content = Content::Hint;
    /// The text to find; nothing while nothing is being found.
    std::optional<QString> m_findText;
    /// The entry to scroll to in the page that is being loaded.
    QUuid m_findEntry;
    PageId m_latestPage = 0;
    PageId m_loadingPage = 0;
    PageSurface::LoadId m_loadId = 0;
    QTimer m_pillAlphaTimer;
    PillAlphaThrottle m_pillAlphaThrottle;
    /// Last member: its destructor waits for a page that is being built.
    QThreadPool m_builder;
};

} // namespace quellora
