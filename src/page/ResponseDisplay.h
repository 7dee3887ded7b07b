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
/// text colour and transparency into it and judges what it reports back. Main thread only; pages
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
        /// A page of its own that is not part of the thread, such as an error.
        Message,
        Thread,
    };

    /// @param surface where pages go; @param workspace opens screenshots and links;
    /// @param temporaryDirectory where preview files go. The references must outlive this object.
    ResponseDisplay(PageSurface &surface, Workspace &workspace, const QString &temporaryDirectory,
                    Timing timing, QObject *parent = nullptr);
    ResponseDisplay(PageSurface &surface, Workspace &workspace, const QString &temporaryDirectory,
                    QObject *parent = nullptr);
    /// Removes the previews and waits until they are gone.
    ~ResponseDisplay() override;

    AppTheme appliedTheme() const { return m_appearance.theme; }
    double currentAlpha() const { return m_appearance.alpha; }
    const std::optional<QString> &responseTextColorHex() const { return m_appearance.textColorHex; }

    /// The setters change what the next page and the next push use; they push nothing by
    /// themselves.
    void setAppliedTheme(AppTheme theme) { m_appearance.theme = theme; }
    /// @param alpha window opacity, 0 to 1
    void setCurrentAlpha(double alpha) { m_appearance.alpha = alpha; }
    /// A text that is no colour counts as none.
    void setResponseTextColorHex(const std::optional<QString> &color);
    /// @param display the capture hot key in its display form
    void setCaptureHotkey(const QString &display) { m_appearance.captureHotkey = display; }
    /// Whom the hint and the thinking indicator name as the one who answers.
    void setAnswererName(const QString &name) { m_appearance.answererName = name; }
    const QString &answererName() const { return m_appearance.answererName; }

    /// Shows one answer; blank text shows the hint, "__LOADING__" the thinking indicator.
    PageId loadContent(const QString &markdown);
    /// Shows a whole thread.
    /// @param keepPage where given, the page on show has become the thread's page but for what this
    ///        does to it: nothing is loaded, and it is called when the load would start.
    PageId renderThread(const CaptureSession &session,
                        const std::function<void()> &keepPage = nullptr);
    /// Logs that a page is complete, as after a load.
    static void logPageFinished();
    /// Shows the thread so far with a new question and an empty answer slot.
    PageId loadStreamingShell(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot);
    /// The page requested last.
    PageId latestPage() const { return m_latestPage; }
    /// The thread has been deleted: its pictures go from the temporary folder.
    void removePreviews(const QUuid &threadId);
    /// The picture is no longer in its thread: it goes from the temporary folder.
    void removePreview(const QUuid &threadId, qint64 index);
    /// Removes every picture from the temporary folder and waits until that is done.
    void removeAllPreviews();
    /// Whether a page that shows this picture is on show or on its way.
    bool showsScreenshot(const QUuid &threadId, qint64 index) const;

    /// What the page requested last shows.
    Content content() const { return m_content; }

    /// Pushes theme, text colour and code style into the page shown.
    void applyTheme();
    /// Pushes the capture hot key and the name of who answers into the hint, if that is what is
    /// shown.
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

    /// The surface, for scripts of the streaming render.
    PageSurface &surface() { return m_surface; }

signals:
    /// content() has changed.
    void contentChanged();
    /// The page scrolled, grew or shrank. @p enabled: the content overflows; @p thumbRatio: visible
    /// part of the content; @p fraction: position, 0 at the top, 1 at the bottom.
    void scrollPositionChanged(bool enabled, double thumbRatio, double fraction);
    /// A picture that the user wants to open could not be written for the viewer.
    void previewFailed();
    /// The user asked for a note to be deleted. The id is well formed, but any id may come.
    void noteDeleteRequested(const QUuid &noteId);
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
    void onLinkActivated(const QString &address);

    PageSurface &m_surface;
    Workspace &m_workspace;
    /// Used on the builder's thread, but for the paths.
    const std::shared_ptr<PreviewFiles> m_files;
    /// Those of the page on show, and of one that is replacing it.
    QHash<PageSurface::LoadId, Pictures> m_pictures;
    responsepage::PageAppearance m_appearance;
    /// Appearance with which the page being loaded or shown was built.
    responsepage::PageAppearance m_builtAppearance;
    Content m_content = Content::Hint;
    PageId m_latestPage = 0;
    PageId m_loadingPage = 0;
    PageSurface::LoadId m_loadId = 0;
    QTimer m_pillAlphaTimer;
    PillAlphaThrottle m_pillAlphaThrottle;
    /// Last member: its destructor waits for a page that is being built.
    QThreadPool m_builder;
};

} // namespace quellora
