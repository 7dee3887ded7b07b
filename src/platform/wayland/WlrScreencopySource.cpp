#include "platform/wayland/WlrScreencopySource.h"

#include "base/WhenFinished.h"
#include "platform/wayland/ScreenCopyFrame.h"
#include "platform/wayland/SwayWindow.h"

#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPromise>
#include <QScreen>
#include <QThreadPool>
#include <QTimer>

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

namespace quellora {
namespace {

/// The pixels of a picture of a screen that show @p window.
/// @param window, screen in points, on the desktop
QRect partShowing(const QRect &window, const QRect &screen, const QSize &picture)
{
    const QRect shown = (window & screen).translated(-screen.topLeft());
    const double scale = static_cast<double>(picture.width()) / screen.width();
    const auto scaled = [scale](int length) {
        return static_cast<int>(std::lround(length * scale));
    };
    const QPoint corner(scaled(shown.x()), scaled(shown.y()));
    const QPoint end(scaled(shown.x() + shown.width()), scaled(shown.y() + shown.height()));
    return QRect(corner, QSize(end.x() - corner.x(), end.y() - corner.y())) &
           QRect(QPoint(), picture);
}

} // namespace

/// One picture. Deletes itself at the end, which uncovers the panel and finishes the future.
class WlrScreencopySource::Shot : public QObject
{
public:
    Shot(WlrScreencopySource &source, Area area)
        : QObject(&source), m_source(source), m_hasCursor(area != Area::AllScreensForChoice)
    {
        source.m_shots.append(this);
        m_promise.start();
        connect(&m_cancellation, &QFutureWatcherBase::canceled, this, &QObject::deleteLater);
        m_cancellation.setFuture(m_promise.future());
        m_limit.setSingleShot(true);
        connect(&m_limit, &QTimer::timeout, this,
                [this] { end(QStringLiteral("The compositor has not taken a picture in time")); });
        m_limit.start(source.m_limit);
        start(area);
    }
    ~Shot() override
    {
        m_source.m_shots.removeOne(this);
        m_frames.clear();
        m_hold.reset();
        if (m_isPromiseKept)
            return;
        m_promise.future().cancel();
        m_promise.finish();
    }

    QFuture<Picture> future() { return m_promise.future(); }

private:
    void start(Area area)
    {
        switch (area) {
        case Area::OneScreen: {
            QScreen *screen = m_source.m_panelScreen();
            return begin({screen ? screen : QGuiApplication::primaryScreen()});
        }
        case Area::AllScreens:
        case Area::AllScreensForChoice:
            return begin(QGuiApplication::screens());
        case Area::FrontWindow:
            return findWindow();
        }
    }
    void findWindow()
    {
        whenFinished(SwayWindow::find(SwayWindow::socketPath()), this,
                     [this](const SwayWindow::Place &place) {
                         if (m_isOver)
                             return;
                         if (!place)
                             return end(place.error(), Failure::Kind::Unavailable);
                         QScreen *screen = QGuiApplication::screenAt(place->center());
                         if (!screen)
                             return end(QStringLiteral("The window in front is on no screen"));
                         m_window = *place;
                         begin({screen});
                     });
    }
    void begin(const QList<QScreen *> &screens)
    {
        for (QScreen *screen : screens) {
            if (!screen)
                continue;
            const WaylandConnection::Output *output = m_source.m_connection.output(*screen);
            wl_output *proxy =
                output ? output->proxy.get() : WaylandConnection::toolkitOutput(*screen);
            if (!proxy)
                continue;
            CopiedScreen copied;
            copied.place = screen->geometry();
            copied.transform = output ? output->transform : 0;
            m_screens.append(copied);
            m_frames.push_back(std::make_unique<ScreenCopyFrame>(
                m_source.m_connection, proxy, m_hasCursor,
                ScreenCopyFrame::Handlers{[this] { handlePrepared(); }, [this] { handleCopied(); },
                                          [this](const QString &reason) { end(reason); }}));
            connect(screen, &QObject::destroyed, this, &Shot::handleScreenGone);
        }
        if (m_frames.empty())
            return end(QStringLiteral("There is no screen"));
        m_source.m_connection.flush();
    }
    void handleScreenGone() { end(QStringLiteral("The screen has been removed")); }
    void handlePrepared()
    {
        if (m_isOver || ++m_prepared < m_frames.size())
            return;
        // The commit that takes the panel away and the copies go out together, in this order.
        m_hold = m_source.m_veil.holdNow();
        for (const auto &frame : m_frames)
            frame->copy();
        m_source.m_connection.flush();
    }
    void handleCopied()
    {
        if (m_isOver || ++m_copied < m_frames.size())
            return;
        m_isOver = true;
        // The panel comes back before anything else is done.
        m_hold.reset();
        for (std::size_t i = 0; i < m_frames.size(); ++i) {
            CopiedScreen &screen = m_screens[static_cast<qsizetype>(i)];
            screen.isUpsideDown = m_frames[i]->isUpsideDown();
            screen.image = m_frames[i]->takeImage();
        }
        deliver();
        deleteLater();
    }
    void deliver()
    {
        m_isPromiseKept = true;
        const CopiedScreen &first = m_screens.first();
        if (m_screens.size() == 1 && first.transform == 0 && !first.isUpsideDown &&
            m_window.isEmpty()) {
            m_promise.addResult(first.image);
            m_promise.finish();
            return;
        }
        QThreadPool::globalInstance()->start(
            [promise = std::make_shared<QPromise<Picture>>(std::move(m_promise)),
             screens = m_screens, window = m_window] {
                QImage image = composeScreens(screens);
                if (!window.isEmpty())
                    image = image.copy(partShowing(window, screens.first().place, image.size()));
                if (image.isNull())
                    promise->addResult(tl::unexpected(
                        Failure{Failure::Kind::Failed,
                                QStringLiteral("The picture of the screens is too large")}));
                else
                    promise->addResult(std::move(image));
                promise->finish();
            });
    }
    void end(const QString &reason, Failure::Kind kind = Failure::Kind::Failed)
    {
        if (std::exchange(m_isOver, true))
            return;
        m_hold.reset();
        m_isPromiseKept = true;
        m_promise.addResult(tl::unexpected(Failure{kind, reason}));
        m_promise.finish();
        deleteLater();
    }

    WlrScreencopySource &m_source;
    const bool m_hasCursor;
    /// In points, on the desktop; empty unless the picture shows a window.
    QRect m_window;
    QPromise<Picture> m_promise;
    QFutureWatcher<Picture> m_cancellation;
    QTimer m_limit;
    QList<CopiedScreen> m_screens;
    std::vector<std::unique_ptr<ScreenCopyFrame>> m_frames;
    std::size_t m_prepared = 0;
    std::size_t m_copied = 0;
    std::unique_ptr<PanelVeil::Hold> m_hold;
    /// Waiting to be deleted.
    bool m_isOver = false;
    /// Finished, or handed to the worker.
    bool m_isPromiseKept = false;
};

WlrScreencopySource::WlrScreencopySource(const WaylandConnection &connection, PanelVeil &veil,
                                         std::function<QScreen *()> panelScreen,
                                         std::chrono::milliseconds limit)
    : m_connection(connection), m_veil(veil), m_panelScreen(std::move(panelScreen)), m_limit(limit)
{}

WlrScreencopySource::~WlrScreencopySource()
{
    // Before the members that they use.
    const QList<Shot *> shots = m_shots;
    qDeleteAll(shots);
}

QFuture<ScreenSource::Picture> WlrScreencopySource::take(Area area)
{
    return (new Shot(*this, area))->future();
}

} // namespace quellora
