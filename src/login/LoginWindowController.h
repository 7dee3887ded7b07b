#pragma once

#include "backend/AuthService.h"
#include "backend/BrowserSignIn.h"
#include "base/AppConfig.h"
#include "login/LoginPresenter.h"
#include "login/LoginViewModel.h"

#include <QObject>
#include <QQuickView>

#include <functional>
#include <memory>
#include <optional>

class QQmlEngine;

namespace quellora {

class ApplicationShell;
class Workspace;

/// The sign-in window: shows the form, runs the browser sign-in and, once signed in, closes and
/// calls onLoginSuccess. Closing it before that quits. Made anew for every sign-in. Main thread
/// only.
class LoginWindowController : public QObject, public LoginPresenter
{
    Q_OBJECT
public:
    /// References are borrowed and outlive the controller.
    struct Collaborators
    {
        QQmlEngine &engine;
        AuthService &auth;
        Workspace &workspace;
        ApplicationShell &shell;
        BackendEndpoints endpoints;
        /// Without it the form offers no Google button.
        std::unique_ptr<BrowserSignIn> oauthListener;
        /// Ends the application.
        std::function<void()> quit;
    };

    /// Size of the window's content in logical pixels.
    static constexpr QSize contentSize{420, 480};

    explicit LoginWindowController(Collaborators collaborators, QObject *parent = nullptr);
    ~LoginWindowController() override;

    /// Shows the window in the middle of the screen and gives it the focus.
    void showWindow() override;
    void bringToFront() override;

    /// Signs in through the browser: waits for its answer, then opens the sign-in page there. The
    /// window comes to the front when that ends.
    void startGoogleSignIn();
    /// The browser's answer: a token (possibly empty) or nothing.
    void handleOAuthCallback(const std::optional<QString> &token);
    /// Ends the attempt through the browser, wherever it is.
    void cancelGoogleSignIn();

    bool didAuthenticate() const { return m_didAuthenticate; }
    LoginViewModel &viewModel() { return m_viewModel; }
    QQuickView &window() { return *m_window; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createWindow();
    void open(const QUrl &url);
    void openSignInPage();
    void endGoogleSignIn();
    void failGoogleSignIn(const QString &message);
    void finishVerification(const QFuture<LoginResult> &future);
    void handleLoginSuccess();
    void windowWillClose();

    Collaborators m_collaborators;
    LoginViewModel m_viewModel;
    std::unique_ptr<QQuickView> m_window;
    bool m_didAuthenticate = false;
    bool m_quitting = false;
    QFuture<LoginResult> m_verification;
    /// Counts beginnings and ends of browser sign-ins; answers to an earlier one are stale.
    quint64 m_attempt = 0;
};

} // namespace quellora
