#pragma once

#include "app/StatusBar.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace quellora {

class NotificationCenter;
class SessionManager;
class Workspace;

/// The status-bar item and its menu while the user is signed in; both go with the controller.
class MenuBarController
{
public:
    MenuBarController(StatusBar &statusBar, SessionManager &session,
                      NotificationCenter &notifications, Workspace &workspace, QUrl accountURL,
                      std::function<void()> quit);

    /// Brings the overlay back.
    std::function<void()> onShowOverlay;

    void showOverlayClicked();
    void manageAccountClicked();
    /// Ends the session through the session-expired path.
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
