#pragma once

#include "platform/DesktopSession.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusMessage>
#include <QHash>
#include <QString>
#include <QVariantMap>

#include <functional>

namespace quellora {

/// The state of the login session according to logind (system bus), and of the desktop's screen
/// lockers org.freedesktop.ScreenSaver and org.gnome.ScreenSaver (session bus).
///
/// The session is locked if logind or one of the lockers says so. logind's latest word counts: its
/// Lock and Unlock signals or a change of LockedHint. A lock signalled by logind that LockedHint
/// does not confirm also ends when a locker becomes inactive. A service that exits no longer
/// counts.
///
/// All queries are asynchronous; no service is started by them. Signals on the system bus count
/// only if logind sent them. Main thread only.
class DesktopSessionLinux : public DesktopSession
{
    Q_OBJECT
public:
    /// @param systemBus, sessionBus addresses of the buses; empty if there is none
    explicit DesktopSessionLinux(const QString &systemBus = SessionBusLinux::systemAddress(),
                                 const QString &sessionBus = SessionBusLinux::address());

    Capability isObserved() const override;
    bool isLocked() const override { return m_isLocked; }

private Q_SLOTS:
    void loginOwnerChanged(const QString &name, const QString &before, const QString &now,
                           const QDBusMessage &message);
    void prepareForSleep(bool isBeginning, const QDBusMessage &message);
    void lockSignalled(const QDBusMessage &message);
    void unlockSignalled(const QDBusMessage &message);
    void sessionPropertiesChanged(const QString &interface, const QVariantMap &changed,
                                  const QStringList &invalidated, const QDBusMessage &message);
    void saverOwnerChanged(const QString &name, const QString &before, const QString &now);
    void saverActiveChanged(bool isActive, const QDBusMessage &message);

private:
    using Reply = std::function<void(const QDBusMessage &)>;

    void watchLogin();
    void findLoginSession();
    void askForSession(qsizetype way);
    void useLoginSession(const QString &path);
    void readLockedHint();
    void watchSavers();
    void askSaver(const QString &name);
    void setLoginLocked(bool isLocked, bool isHint);
    void setSaverActive(const QString &name, bool isActive);
    void update();
    /// Calls @p received on the main thread with the reply, which may be an error.
    void call(const SessionBusLinux &bus, QDBusMessage message, const Reply &received);
    bool isFromLogin(const QDBusMessage &message) const;

    bool m_hasBus;
    SessionBusLinux m_systemBus;
    SessionBusLinux m_sessionBus;
    /// Unique bus name of logind.
    QString m_loginOwner;
    /// Object path of this session; empty while unknown.
    QString m_loginSession;
    /// Counts the searches for the session, so that replies to earlier ones are ignored.
    int m_search = 0;
    bool m_isLoginLocked = false;
    /// Whether LockedHint, not only a Lock signal, is the source of m_isLoginLocked.
    bool m_isHintSet = false;
    /// The lockers' states by bus name.
    QHash<QString, bool> m_savers;
    bool m_isLocked = false;
};

} // namespace quellora
