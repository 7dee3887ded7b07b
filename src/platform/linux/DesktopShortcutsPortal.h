#pragma once

#include "platform/DesktopShortcuts.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QHash>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace quellora {

class PortalRequest;

/// An element of the portal's type a(sa{sv}).
struct PortalShortcut
{
    QString id;
    QVariantMap properties;
};
using PortalShortcuts = QList<PortalShortcut>;
QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut);
const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut);

/// Keys from the desktop portal org.freedesktop.portal.GlobalShortcuts. All calls are asynchronous,
/// on a connection of its own to the session bus.
///
/// The actions are bound again when the portal restarts or ends the session. A portal that keeps
/// doing so is given up after a few attempts. If the user declines, the portal is not asked again
/// by this process.
class DesktopShortcutsPortal : public DesktopShortcuts
{
    Q_OBJECT
public:
    /// How the desktop learns about the actions.
    enum class Binding {
        /// By BindShortcuts in every session. The desktop asks the user about new actions only.
        Always,
        /// When the session is created; by BindShortcuts only if that was not enough. For KDE,
        /// whose BindShortcuts opens the system settings every time.
        IfMissing,
    };

    /// @param busAddress address of the session bus; empty if there is none
    explicit DesktopShortcutsPortal(const QString &busAddress = SessionBusLinux::address(),
                                    Binding binding = currentBinding());
    ~DesktopShortcutsPortal() override;

    /// The way of this process's desktop, from its environment.
    static Binding currentBinding();
    /// A combination in the notation of the XDG shortcuts specification, e.g. "CTRL+ALT+LOGO+c".
    static QString triggerText(QKeyCombination combo);

    void offer(const QList<Action> &actions) override;
    Capability state() const override { return m_state; }
    QString trigger(const QString &id) const override { return m_triggers.value(id); }

private Q_SLOTS:
    void portalOwnerChanged(const QString &name, const QString &before, const QString &now,
                            const QDBusMessage &message);
    void shortcutActivated(const QDBusMessage &message);
    void shortcutsChanged(const QDBusMessage &message);
    void sessionClosed(const QDBusMessage &message);

private:
    enum class BusState { None, Connecting, Connected, Failed };

    void busConnected();
    /// Gives the keys back, because a session takes actions only once.
    void closeSession();
    /// Asks for the portal's version and binds the actions.
    void begin();
    void createSession();
    void bindShortcuts();
    void listShortcuts();
    /// Binds again after a loss, unless that happened too often.
    void recover(const QString &reason);
    /// Starts a request; @p done gets the results of a successful one, @p failed the reason why
    /// there are none.
    void request(const QDBusMessage &call, const QVariantMap &options,
                 const std::function<void(const QVariantMap &)> &done,
                 const std::function<void(const QString &)> &failed);
    void handleDeclined();
    void abandon(const QString &reason);
    /// Takes over the keys of the given shortcuts; others keep theirs.
    void setDelivering(const PortalShortcuts &shortcuts);
    void setState(const Capability &state, const QHash<QString, QString> &triggers);
    bool isOffered(const QString &id) const;

    const Binding m_binding;
    BusState m_busState;
    SessionBusLinux m_bus;
    QList<Action> m_actions;
    bool m_isOffered = false;
    bool m_isDeclined = false;
    Capability m_state;
    /// By action.
    QHash<QString, QString> m_triggers;
    /// Unique bus name of the portal in use; empty while unknown.
    QString m_owner;
    /// Object path; empty without a session.
    QString m_session;
    /// Whether BindShortcuts was called for the session.
    bool m_isBound = false;
    /// Whether the question for the portal's version is not answered yet.
    bool m_isAsking = false;
    /// Whether other actions have been offered since the attempt under way began.
    bool m_isOutdated = false;
    /// Counts the attempts to bind, so that replies to earlier ones are ignored.
    int m_attempt = 0;
    int m_recoveriesLeft;
    std::unique_ptr<PortalRequest, void (*)(PortalRequest *)> m_request;
};

} // namespace quellora
