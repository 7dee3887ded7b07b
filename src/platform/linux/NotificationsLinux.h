#pragma once

#include "platform/Notifications.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusMessage>

#include <optional>

namespace quellora {

/// Notifications through the desktop's notification service on the session bus. All calls are
/// asynchronous. If no service answers, this is logged once until one does. Main thread only.
class NotificationsLinux : public Notifications
{
    Q_OBJECT
public:
    /// @param busAddress address of the session bus; empty if there is none
    explicit NotificationsLinux(const QString &busAddress = SessionBusLinux::address());

    Capability support() const override;
    void show(const QString &title, const QString &text) override;
    void close() override;

private Q_SLOTS:
    void actionInvoked(uint id, const QString &action, const QDBusMessage &message);
    void notificationClosed(uint id, uint reason, const QDBusMessage &message);

private:
    enum class BusState { Connecting, Connected, Failed };

    struct Content
    {
        QString title;
        QString text;
    };

    void busConnected();
    /// Sends the waiting notification unless an earlier one is still being sent.
    void sendNext();
    void sent(const QDBusMessage &reply);
    void sendClose();
    void logFailure(const QString &reason);
    bool isOurs(uint id, const QDBusMessage &message) const;

    bool m_hasBus;
    SessionBusLinux m_bus;
    BusState m_busState = BusState::Connecting;
    /// To be sent when the bus is connected and the service has answered.
    std::optional<Content> m_waiting;
    bool m_isSending = false;
    /// Set if the notification being sent is to be closed as soon as its number is known.
    bool m_isCloseWanted = false;
    /// The service's number of the notification on show; 0 for none.
    uint m_id = 0;
    /// Unique bus name of the service that shows it.
    QString m_owner;
    bool m_isFailureLogged = false;
};

} // namespace quellora
