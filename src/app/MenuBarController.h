#pragma once

#include "app/StatusBar.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

namespace quellora {

class NotificationCenter;
class SessionManager;
class Workspace;

/// The status item and its menu while the user is signed in. Destroying the controller removes
/// both. A click on the item shows the overlay, like the first menu row. Main thread only.
class MenuBarController : public QObject
{
    Q_OBJECT
public:
    MenuBarController(StatusBar &statusBar, SessionManager &session,
                      NotificationCenter &notifications, Workspace &workspace, QUrl accountURL,
                      std::function<void()> quit);

    /// Called to show the overlay.
    std::function<void()> onShowOverlay;
    /// Called with a message for the user if a URL could not be opened; by then the menu is closed.
    std::function<void(const QString &text)> onOpenFailed;

    void showOverlayClicked();
    void manageAccountClicked();
    /// Logs out, then emits NotificationCenter::sessionExpired().
    void signOutClicked();
    void quitClicked();

private:
    void build(StatusBar &statusBar);

    SessionManager &m_session;
    NotificationCenter &m_notifications;
    Workspace &m_workspace;
    QUrl m_accountURL;
    std::function<void()> m_quit;
    std::unique_ptr<StatusItem> m_statusItem;
};

} // namespace quellora
