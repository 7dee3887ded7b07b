#pragma once

#include "FakeSignIn.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "login/LoginWindowController.h"
#include "ui/QuickItems.h"
#include "ui/Ui.h"

#include <QQmlEngine>

namespace quellora {

inline const QString prefix = QStringLiteral("[LoginWindowController] ");

/// A sign-in window with fake collaborators.
struct Fixture
{
    explicit Fixture(bool withBrowser = true, ScreenSource *pictures = nullptr)
        : controller({engine, auth, workspace, shell,
                      BackendEndpoints(QStringLiteral("https://backend.example")),
                      withBrowser ? std::make_unique<FakeBrowserSignIn>(browser) : nullptr,
                      [this] { ++quits; }, pictures})
    {
        controller.onLoginSuccess = [this] {
            ++successes;
            visibleAtSuccess = controller.window().isVisible();
        };
    }

    /// Shows the window and waits until it is active.
    bool show()
    {
        controller.showWindow();
        controller.window().requestActivate();
        return QTest::qWaitForWindowActive(&controller.window());
    }
    QQuickItem *root() { return controller.window().rootObject(); }
    QQuickItem *named(const QString &name) { return findItem(root(), "name", name); }
    QQuickItem *email() { return named(QStringLiteral("Email")); }
    QQuickItem *password() { return named(QStringLiteral("Password")); }
    QQuickItem *button(const QString &text)
    {
        for (QQuickItem *item : root()->findChildren<QQuickItem *>()) {
            if (item->inherits("QQuickAbstractButton") && item->property("text") == text)
                return item;
        }
        return nullptr;
    }
    QQuickItem *signIn() { return button(QStringLiteral("Sign in")); }
    QQuickItem *google() { return button(QStringLiteral("Sign in with Google")); }
    QQuickItem *label(const QString &text)
    {
        for (QQuickItem *item : root()->findChildren<QQuickItem *>()) {
            if (item->inherits("QQuickText") && item->property("text") == text)
                return item;
        }
        return nullptr;
    }
    void type(const QString &text)
    {
        for (const QChar character : text)
            QTest::keyClick(&controller.window(), character.toLatin1());
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&controller.window(), key, modifiers);
    }
    void fill()
    {
        email()->setProperty("text", QStringLiteral("you@example.com"));
        password()->setProperty("text", QStringLiteral("secret"));
    }
    /// Closes the window like its close button.
    void closeByUser() { controller.window().close(); }

    LogCapture log;
    QQmlEngine engine;
    bool prepared = (prepareQmlEngine(engine), true);
    FakeAuthService auth;
    FakeWorkspace workspace;
    FakeShell shell;
    BrowserSignInRecord browser;
    int quits = 0;
    int successes = 0;
    bool visibleAtSuccess = true;
    LoginWindowController controller;
};

} // namespace quellora
