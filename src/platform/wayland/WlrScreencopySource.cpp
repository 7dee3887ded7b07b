#include "platform/wayland/WlrScreencopySource.h"

#include "platform/wayland/ScreenCopyFrame.h"

#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPromise>
#include <QScreen>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <utility>
#include <vector>

namespace quellora {

/// One picture. Deletes itself at the end, which uncovers the panel and finishes the future.
class WlrScreencopySource::Shot : public QObject
{
public:
    Shot(WlrScreencopySource &source, const QList<QScreen *> &screens)
        : QObject(&source), m_source(source)
    {
        source.m_shots.append(this);
        m_promise.start();
        connect(&m_cancellation, &QFutureWatcherBase::canceled, this, &QObject::deleteLater);
        m_cancellation.setFuture(m_promise.future());
        m_limit.setSingleShot(true);
        connect(&m_limit, &QTimer::timeout, this,
                [this] { end(QStringLiteral("The compositor has not taken a picture in time")); });
        m_limit.start(source.m_limit);
        begin(screens);
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
    void begin(const QList<QScreen *> &screens)
    {
        for (QScreen *screen : screens) {
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
                m_source.m_connection, proxy, true,
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
        if (m_screens.size() == 1 && first.transform == 0 && !first.isUpsideDown) {
            m_promise.addResult(first.image);
            m_promise.finish();
            return;
        }
        QThreadPool::globalInstance()->start(
            [promise = std::make_shared<QPromise<Picture>>(std::move(m_promise)),
             screens = m_screens] {
                QImage image = composeScreens(screens);
                if (image.isNull())
                    promise->addResult(tl::unexpected(
                        Failure{Failure::Kind::Failed,
                                QStringLiteral("The picture of all screens is too large")}));
                else
                    promise->addResult(std::move(image));
                promise->finish();
            });
    }
    void end(const QString &reason)
    {
        if (std::exchange(m_isOver, true))
            return;
        m_hold.reset();
        m_isPromiseKept = true;
        m_promise.addResult(tl::unexpected(Failure{Failure::Kind::Failed, reason}));
        m_promise.finish();
        deleteLater();
    }

    WlrScreencopySource &m_source;
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
    QList<QScreen *> screens = QGuiApplication::screens();
    if (area == Area::OneScreen) {
        QScreen *screen = m_panelScreen();
        screens = {screen ? screen : QGuiApplication::primaryScreen()};
        screens.removeAll(nullptr);
    }
    return (new Shot(*this, screens))->future();
}

} // namespace quellora
