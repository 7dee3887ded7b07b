#pragma once

#include "backend/AuthService.h"
#include "backend/BrowserSignIn.h"
#include "base/AppConfig.h"
#include "login/LoginPresenter.h"
#include "login/LoginViewModel.h"
#include "platform/ScreenSource.h"

#include <QObject>
#include <QQuickView>

#include <functional>
#include <memory>
#include <optional>

class QQmlEngine;

namespace quellora {

class ApplicationShell;
class Workspace;

/// The sign-in window: shows the form, performs the browser sign-in and, after a successful
/// sign-in, closes and calls onLoginSuccess. Closing it before that quits the application. A new
/// instance is created for each sign-in. Main thread only.
class LoginWindowController : public QObject, public LoginPresenter
{
    Q_OBJECT
public:
    /// References are borrowed and must outlive the controller.
    struct Collaborators
    {
        QQmlEngine &engine;
        AuthService &auth;
        Workspace &workspace;
        ApplicationShell &shell;
        BackendEndpoints endpoints;
        /// May be null; the form then has no Google button.
        std::unique_ptr<BrowserSignIn> oauthListener;
        /// Quits the application.
        std::function<void()> quit;
        /// Where pictures are taken in this process, else null. If the desktop has to ask the user
        /// for the permission, it does after sign-in, while this window has the focus.
        ScreenSource *pictures = nullptr;
    };

    /// Size of the window's content in logical pixels at the normal text size.
    static constexpr QSize contentSize{420, 480};

    explicit LoginWindowController(Collaborators collaborators, QObject *parent = nullptr);
    ~LoginWindowController() override;

    /// Shows the window centred on the screen and activates it.
    void showWindow() override;
    void bringToFront() override;

    /// Starts a browser sign-in: starts the callback listener and, once it is ready, opens the
    /// sign-in page. The window is raised when the callback arrives or the attempt fails.
    void startGoogleSignIn();
    /// Handles the browser's callback; nullopt if it carried no usable token. An empty token is
    /// verified like any other.
    void handleOAuthCallback(const std::optional<QString> &token);
    /// Cancels a browser sign-in in any phase.
    void cancelGoogleSignIn();

    bool didAuthenticate() const { return m_didAuthenticate; }
    LoginViewModel &viewModel() { return m_viewModel; }
    QQuickView &window() { return *m_window; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createWindow();
    /// Gives the window the form's size, or as much of it as the screen has room for.
    void fitWindow();
    void open(const QUrl &url);
    void openSignInPage();
    void endGoogleSignIn();
    void failGoogleSignIn(const QString &message);
    void finishVerification(const QFuture<LoginResult> &future);
    void handleLoginSuccess();
    void askForPictures();
    /// Closes the window after sign-in.
    void leave();
    void windowWillClose();

    Collaborators m_collaborators;
    LoginViewModel m_viewModel;
    std::unique_ptr<QQuickView> m_window;
    bool m_didAuthenticate = false;
    bool m_hasLeft = false;
    QFuture<ScreenSource::Access> m_pictureAnswer;
    bool m_quitting = false;
    QFuture<LoginResult> m_verification;
    /// Incremented when a browser sign-in starts or ends; callbacks of earlier attempts are stale.
    quint64 m_attempt = 0;
};

} // namespace quellora
