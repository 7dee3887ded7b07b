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

/// The status-bar item and its menu while the user is signed in; both go with the controller. A
/// click on the item brings the overlay back, as the menu's first row does.
class MenuBarController : public QObject
{
    Q_OBJECT
public:
    MenuBarController(StatusBar &statusBar, SessionManager &session,
                      NotificationCenter &notifications, Workspace &workspace, QUrl accountURL,
                      std::function<void()> quit);

    /// Brings the overlay back.
    std::function<void()> onShowOverlay;
    /// Tells the user what could not be opened: the menu has gone by then.
    std::function<void(const QString &text)> onOpenFailed;

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
