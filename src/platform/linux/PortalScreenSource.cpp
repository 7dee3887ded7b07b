#include "platform/linux/PortalScreenSource.h"

#include "base/Log.h"
#include "platform/linux/PortalRequest.h"

#include <QFutureWatcher>
#include <QPointer>
#include <QPromise>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <utility>

namespace quellora {
namespace {

const QString screenshotPortal = QStringLiteral("org.freedesktop.portal.Screenshot");

void log(const QString &message)
{
    Log::event(QStringLiteral("[ScreenSource] ") + message);
}

} // namespace

/// One picture, or the question for the permission. Deletes itself at the end, which shows the
/// panel again and finishes the future.
class PortalScreenSource::Shot : public QObject
{
public:
    /// @param isQuestion the picture is discarded, and the panel is left as it is
    Shot(PortalScreenSource &source, Area area, bool isQuestion)
        : QObject(&source), m_source(source), m_area(area), m_isQuestion(isQuestion)
    {
        m_promise.start();
        m_answer.start();
        connect(&m_answerCancellation, &QFutureWatcherBase::canceled, this, &Shot::cancel);
        source.m_shots.append(this);
        connect(&m_cancellation, &QFutureWatcherBase::canceled, this, &Shot::cancel);
        m_cancellation.setFuture(m_promise.future());
        m_panelLimit.setSingleShot(true);
        connect(&m_panelLimit, &QTimer::timeout, this, &Shot::handleLate);
        m_answerLimit.setSingleShot(true);
        connect(&m_answerLimit, &QTimer::timeout, this, [this] {
            end(Failure{Failure::Kind::Failed,
                        QStringLiteral("The desktop has not taken a picture in time")});
        });
        m_answerLimit.start(source.m_limits.answer);
        connect(&source.m_permission, &PortalPermission::portalEnded, this, [this] {
            if (m_request)
                end(Failure{Failure::Kind::Failed,
                            QStringLiteral("The desktop's portal has ended without a picture")});
        });
        switch (source.m_busState) {
        case BusState::Connected:
            begin();
            break;
        case BusState::Connecting:
            connect(&source.m_bus, &SessionBusLinux::connected, this, &Shot::begin);
            connect(&source.m_bus, &SessionBusLinux::failed, this, &Shot::handleNoBus);
            break;
        case BusState::Failed:
            QMetaObject::invokeMethod(this, &Shot::handleNoBus, Qt::QueuedConnection);
            break;
        }
    }
    ~Shot() override
    {
        m_source.m_shots.removeOne(this);
        m_hold.reset();
        if (!m_isCancelled)
            m_answer.addResult(m_source.access());
        m_answer.finish();
        if (m_isPromiseKept)
            return;
        m_promise.future().cancel();
        m_promise.finish();
    }

    QFuture<Picture> future() { return m_promise.future(); }
    /// The access when the user has answered.
    QFuture<Access> answer()
    {
        m_answerCancellation.setFuture(m_answer.future());
        return m_answer.future();
    }
    /// The picture is not wanted any more.
    void cancel()
    {
        if (m_isCancelled)
            return;
        m_isCancelled = true;
        m_hold.reset();
        finish();
        // A picture may be under way, whose file must be removed. While the user is being asked,
        // there is none.
        if (!m_request || m_isLate || m_isQuestion)
            deleteLater();
    }

private:
    void begin()
    {
        if (m_isQuestion)
            return send();
        m_hold = m_source.m_veil.hold([this] { send(); });
    }
    void handleNoBus()
    {
        end(Failure{Failure::Kind::Unavailable,
                    QStringLiteral("The desktop cannot be asked for a picture: there is no "
                                   "session bus")});
    }
    void send()
    {
        m_panelLimit.start(m_source.m_limits.panelGone);
        m_since = PortalPicture::now();
        QDBusMessage call = PortalRequest::call(screenshotPortal, QStringLiteral("Screenshot"));
        // No parent window.
        call << QString();
        m_request = new PortalRequest(m_source.m_bus.connection(), call,
                                      {{QStringLiteral("interactive"), false}}, this);
        connect(m_request, &PortalRequest::finished, this, &Shot::handleResponse);
    }
    void handleLate()
    {
        m_isLate = true;
        m_hold.reset();
        if (m_isCancelled)
            deleteLater();
    }
    void handleResponse(PortalRequest::Outcome outcome, const QVariantMap &results,
                        const QString &error)
    {
        m_panelLimit.stop();
        m_request->deleteLater();
        m_request = nullptr;
        // The panel comes back before anything else is done.
        m_hold.reset();
        if (outcome != PortalRequest::Outcome::Done)
            return handleRefusal(outcome, error);
        m_source.m_permission.noteGranted();
        const QString uri = results.value(QStringLiteral("uri")).toString();
        if (m_isCancelled || m_isQuestion || m_isLate) {
            QThreadPool::globalInstance()->start(
                [uri, since = m_since] { PortalPicture::discard(uri, since); });
        }
        if (m_isCancelled || m_isQuestion)
            return deleteLater();
        if (std::exchange(m_isLate, false)) {
            // The panel is in this picture. The user has agreed now, so the next one is quick.
            if (std::exchange(m_isRepeated, true))
                return end(Failure{Failure::Kind::Failed,
                                   QStringLiteral("The desktop takes too long for a picture")});
            return begin();
        }
        read(uri);
    }
    void handleRefusal(PortalRequest::Outcome outcome, const QString &error)
    {
        if (m_isCancelled)
            return deleteLater();
        if (outcome == PortalRequest::Outcome::Cancelled) {
            m_source.m_permission.noteRefused();
            return end(m_source.failure(Access::Refused, {}));
        }
        log(QStringLiteral("WARNING: No picture from the desktop: ") + error);
        // The portal does not say that the permission is missing.
        m_source.m_permission.noteFailed(
            this, [this, error](Access access) { end(m_source.failure(access, error)); });
    }
    void read(const QString &uri)
    {
        const ScreenLayout layout =
            m_area == Area::OneScreen ? m_source.m_layout() : ScreenLayout();
        m_isPromiseKept = true;
        QThreadPool::globalInstance()->start(
            [promise = std::make_shared<QPromise<Picture>>(std::move(m_promise)), uri, layout,
             since = m_since] {
                auto image = PortalPicture::take(uri, since);
                if (image) {
                    const QRect part = chosenPart(image->size(), layout);
                    promise->addResult(part.size() == image->size() ? *std::move(image)
                                                                    : image->copy(part));
                } else {
                    promise->addResult(
                        tl::unexpected(Failure{Failure::Kind::Failed, std::move(image).error()}));
                }
                promise->finish();
            });
        deleteLater();
    }
    void end(const Failure &failure)
    {
        m_hold.reset();
        if (!m_isPromiseKept && !m_isCancelled)
            m_promise.addResult(tl::unexpected(failure));
        finish();
        deleteLater();
    }
    void finish()
    {
        if (!std::exchange(m_isPromiseKept, true))
            m_promise.finish();
    }

    PortalScreenSource &m_source;
    const Area m_area;
    const bool m_isQuestion;
    QPromise<Picture> m_promise;
    QFutureWatcher<Picture> m_cancellation;
    QPromise<Access> m_answer;
    QFutureWatcher<Access> m_answerCancellation;
    std::unique_ptr<PanelVeil::Hold> m_hold;
    PortalRequest *m_request = nullptr;
    timespec m_since = {};
    QTimer m_panelLimit;
    QTimer m_answerLimit;
    bool m_isLate = false;
    bool m_isRepeated = false;
    bool m_isCancelled = false;
    /// Finished, or handed to the worker.
    bool m_isPromiseKept = false;
};

PortalScreenSource::PortalScreenSource(PanelVeil &veil, std::function<ScreenLayout()> layout,
                                       const QString &busAddress, Limits limits)
    : m_veil(veil)
    , m_layout(std::move(layout))
    , m_limits(limits)
    , m_bus(QStringLiteral("pictures"), busAddress)
{
    connect(&m_permission, &PortalPermission::changed, this, [this] {
        if (m_handler)
            m_handler();
    });
    connect(&m_bus, &SessionBusLinux::connected, this, [this] {
        m_busState = BusState::Connected;
        m_permission.start(m_bus.connection());
    });
    const auto handleNoBus = [this] {
        m_busState = BusState::Failed;
        m_permission.setUnavailable();
    };
    if (busAddress.isEmpty())
        handleNoBus();
    connect(&m_bus, &SessionBusLinux::failed, this, handleNoBus);
}

PortalScreenSource::~PortalScreenSource()
{
    // Before the members that they use.
    const QList<Shot *> shots = m_shots;
    qDeleteAll(shots);
}

QFuture<ScreenSource::Picture> PortalScreenSource::take(Area area)
{
    if (area == Area::FrontWindow)
        return QtFuture::makeReadyFuture<Picture>(tl::unexpected(
            Failure{Failure::Kind::Unavailable,
                    QStringLiteral("This desktop takes no pictures of single windows for other "
                                   "programs. Capture a region instead")}));
    return (new Shot(*this, area, false))->future();
}

QFuture<ScreenSource::Access> PortalScreenSource::ask()
{
    return (new Shot(*this, Area::OneScreen, true))->answer();
}

void PortalScreenSource::onAccessChanged(std::function<void()> handler)
{
    m_handler = std::move(handler);
}

QString PortalScreenSource::advice() const
{
    switch (access()) {
    case Access::Refused:
        return QStringLiteral("The desktop keeps the answer to its question whether applications "
                              "may take screenshots, and its settings do not show it. To be asked "
                              "again, run this command in a terminal, then capture once more: `%1`")
            .arg(m_permission.resetCommand());
    case Access::Unavailable:
        return QStringLiteral("The desktop has no Screenshot portal (xdg-desktop-portal and the "
                              "desktop's own part of it).");
    case Access::Unknown:
    case Access::NotAsked:
    case Access::Granted:
        break;
    }
    return {};
}

ScreenSource::Failure PortalScreenSource::failure(Access access, const QString &reason) const
{
    switch (access) {
    case Access::Refused:
        return {
            Failure::Kind::Refused,
            QStringLiteral("The desktop does not permit pictures of the screen. %1").arg(advice())};
    case Access::Unavailable:
        return {Failure::Kind::Unavailable,
                QStringLiteral("The desktop offers no way to take a picture of the screen. %1")
                    .arg(advice())};
    case Access::Unknown:
    case Access::NotAsked:
    case Access::Granted:
        break;
    }
    return {Failure::Kind::Failed,
            QStringLiteral("The desktop has not taken a picture: %1").arg(reason)};
}

} // namespace quellora
