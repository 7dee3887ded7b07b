#include "platform/linux/NotificationsLinux.h"

#include "base/Log.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QVariantMap>

#include <utility>

namespace quellora {
namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString defaultAction = QStringLiteral("default");

} // namespace

NotificationsLinux::NotificationsLinux(const QString &busAddress)
    : m_hasBus(!busAddress.isEmpty()), m_bus(QStringLiteral("notifications"), busAddress)
{
    connect(&m_bus, &SessionBusLinux::connected, this, &NotificationsLinux::busConnected);
    connect(&m_bus, &SessionBusLinux::failed, this, [this] {
        m_busState = BusState::Failed;
        if (std::exchange(m_waiting, std::nullopt))
            logFailure(QStringLiteral("the session bus cannot be reached"));
    });
}

Capability NotificationsLinux::support() const
{
    return m_hasBus ? Capability::applied()
                    : Capability::unsupported(QStringLiteral("There is no session bus"));
}

void NotificationsLinux::busConnected()
{
    m_busState = BusState::Connected;
    QDBusConnection bus = m_bus.connection();
    // No sender: Qt would look up a named sender's owner with a blocking call. The slots check it.
    bus.connect(QString(), path, service, QStringLiteral("ActionInvoked"), this,
                SLOT(actionInvoked(uint, QString, QDBusMessage)));
    bus.connect(QString(), path, service, QStringLiteral("NotificationClosed"), this,
                SLOT(notificationClosed(uint, uint, QDBusMessage)));
    sendNext();
}

void NotificationsLinux::show(const QString &title, const QString &text)
{
    if (!m_hasBus || m_busState == BusState::Failed) {
        logFailure(m_hasBus ? QStringLiteral("the session bus cannot be reached")
                            : QStringLiteral("there is no session bus"));
        return;
    }
    m_waiting = Content{title, text};
    m_isCloseWanted = false;
    sendNext();
}

void NotificationsLinux::sendNext()
{
    if (m_busState != BusState::Connected || m_isSending || !m_waiting)
        return;
    const Content content = *std::exchange(m_waiting, std::nullopt);
    QDBusMessage notify =
        QDBusMessage::createMethodCall(service, path, service, QStringLiteral("Notify"));
    const QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("quellora")}};
    notify << QStringLiteral("Quellora") << m_id << QStringLiteral("quellora") << content.title
           << content.text << QStringList{defaultAction, QStringLiteral("Show Quellora")} << hints
           << -1;
    m_isSending = true;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                sent(finished->reply());
            });
}

void NotificationsLinux::sent(const QDBusMessage &reply)
{
    m_isSending = false;
    const QVariant id = reply.arguments().value(0);
    if (reply.type() == QDBusMessage::ReplyMessage && id.typeId() == QMetaType::UInt) {
        m_id = id.toUInt();
        m_owner = reply.service();
        m_isFailureLogged = false;
    } else {
        m_id = 0;
        logFailure(reply.type() == QDBusMessage::ErrorMessage
                       ? SessionBusLinux::errorText(reply)
                       : QStringLiteral("the answer is not a number"));
    }
    if (std::exchange(m_isCloseWanted, false))
        sendClose();
    sendNext();
}

void NotificationsLinux::close()
{
    m_waiting.reset();
    if (m_isSending)
        m_isCloseWanted = true;
    else
        sendClose();
}

void NotificationsLinux::sendClose()
{
    const uint id = std::exchange(m_id, 0);
    if (id == 0)
        return;
    QDBusMessage close =
        QDBusMessage::createMethodCall(service, path, service, QStringLiteral("CloseNotification"));
    close << id;
    close.setAutoStartService(false);
    m_bus.connection().send(close);
}

bool NotificationsLinux::isOurs(uint id, const QDBusMessage &message) const
{
    return id != 0 && id == m_id && message.service() == m_owner;
}

void NotificationsLinux::actionInvoked(uint id, const QString &action, const QDBusMessage &message)
{
    if (isOurs(id, message) && action == defaultAction)
        Q_EMIT chosen();
}

void NotificationsLinux::notificationClosed(uint id, uint, const QDBusMessage &message)
{
    if (isOurs(id, message))
        m_id = 0;
}

void NotificationsLinux::logFailure(const QString &reason)
{
    if (!std::exchange(m_isFailureLogged, true))
        Log::event(QStringLiteral("[Notifications] WARNING: No notification service answers: ") +
                   reason);
}

} // namespace quellora
