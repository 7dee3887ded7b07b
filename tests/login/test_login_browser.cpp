#include "LoginFixture.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QtTest>

#include <thread>

using namespace quellora;

class TestLoginBrowser : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void googleIsHiddenWithoutListener();
    void googleOpensBrowserWhenListenerIsReady();
    void googleWaitingState();
    void googleWithoutTokenFails();
    void googleEmptyTokenIsVerified();
    void googleTokenSignsIn();
    void googleRejectedTokenShowsError();
    void googleVerificationWithoutResultShowsError();
    void googleCallbacksFromAnotherThread();
    void googleRetryIgnoresEarlierAttempt();
    void googleResultAfterEmailSignInIsIgnored();
    void firstSignInCancelsTheOther();
    void emailFailureKeepsBrowserSignIn();
    void closingWhileWaitingQuits();
    void googleFailureToOpenBrowserEndsAttempt();
    void lateFailureToOpenBrowserIsIgnored();
    void failureToOpenLinkIsShown_data();
    void failureToOpenLinkIsShown();
    void cancelEndsAttempt();
    void cancelEndsVerification();
    void cancelByKeyboardMovesFocusToGoogleButton();
    void callbackRaisesWindow_data();
    void callbackRaisesWindow();
    void emailSignInWorksWhileWaiting();
    void destructionCancelsListener();
};

void TestLoginBrowser::googleIsHiddenWithoutListener()
{
    Fixture f(false);
    QVERIFY(f.show());
    QVERIFY(!f.google()->isVisible());
    QVERIFY(!visibleTexts(f.root()).contains(QStringLiteral("or")));
    f.controller.startGoogleSignIn();
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
}

void TestLoginBrowser::googleOpensBrowserWhenListenerIsReady()
{
    Fixture f;
    QVERIFY(f.show());
    f.controller.viewModel().setErrorMessage(QStringLiteral("Invalid email or password"));
    f.log.clear();
    click(f.google());
    QCOMPARE(f.browser.starts(), 1);
    QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
    QVERIFY(f.controller.viewModel().isGoogleLoading());
    QVERIFY(f.workspace.urls.isEmpty());
    f.browser.ready.last()();
    QTRY_COMPARE(f.workspace.urls.size(), 1);
    QCOMPARE(f.workspace.urls.first(),
             QUrl(QStringLiteral("https://backend.example/login?callback=http://127.0.0.1:9877"
                                 "/oauth-callback")));
    QCOMPARE(
        f.log.lines,
        QStringList{prefix + QStringLiteral("OAuth callback listener ready, opening browser for "
                                            "Google sign-in")});
}

void TestLoginBrowser::googleWaitingState()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    QQuickItem *waiting = f.button(QStringLiteral("Waiting for your browser…"));
    QVERIFY(waiting);
    QQuickItem *note = f.label(QStringLiteral("Finish signing in there, then come back here."));
    QVERIFY(note && note->isVisible());
    QCOMPARE(areaOf(note), QRectF(40, 396, 340, 16));
    QQuickItem *spinner = f.named(QStringLiteral("Waiting for your browser"));
    QVERIFY(spinner && spinner->isVisible());
    QCOMPARE(spinner->width(), 16);
    click(waiting);
    waiting->forceActiveFocus(Qt::TabFocusReason);
    f.press(Qt::Key_Return);
    f.press(Qt::Key_Space);
    QCOMPARE(f.browser.starts(), 1);
}

void TestLoginBrowser::googleWithoutTokenFails()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.log.clear();
    f.browser.token.last()(std::nullopt);
    QTRY_VERIFY(!f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.controller.viewModel().errorMessage(),
             QStringLiteral("Google sign-in failed. Please try again."));
    QCOMPARE(
        f.log.lines,
        QStringList{prefix + QStringLiteral("OAuth callback received without a usable token")});
    QVERIFY(f.workspace.urls.isEmpty());
    QVERIFY(f.auth.tokens.isEmpty());
}

void TestLoginBrowser::googleEmptyTokenIsVerified()
{
    Fixture f;
    f.controller.handleOAuthCallback(QString());
    QCOMPARE(f.auth.tokens, QStringList{QString()});
}

void TestLoginBrowser::googleTokenSignsIn()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.browser.ready.last()();
    f.browser.token.last()(QStringLiteral("abc def"));
    QTRY_COMPARE(f.auth.tokens, QStringList{QStringLiteral("abc def")});
    f.log.clear();
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("Login successful, closing login window")});
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
    QVERIFY(!f.controller.window().isVisible());
}

void TestLoginBrowser::googleRejectedTokenShowsError()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.browser.token.last()(QStringLiteral("stale"));
    QTRY_COMPARE(f.auth.tokens.size(), 1);
    f.log.clear();
    f.auth.fail(AuthError::invalidCredentials());
    QTRY_VERIFY(!f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.controller.viewModel().errorMessage(), QStringLiteral("Invalid email or password"));
    QCOMPARE(
        f.log.lines,
        QStringList{prefix + QStringLiteral("OAuth token verification failed: Invalid email or "
                                            "password")});
    QCOMPARE(f.successes, 0);
    QVERIFY(f.controller.window().isVisible());
}

void TestLoginBrowser::googleVerificationWithoutResultShowsError()
{
    Fixture f;
    f.controller.handleOAuthCallback(QStringLiteral("token"));
    f.auth.drop();
    QTRY_COMPARE(f.controller.viewModel().errorMessage(),
                 QStringLiteral("Google sign-in failed. Please try again."));
}

void TestLoginBrowser::googleCallbacksFromAnotherThread()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    const auto ready = f.browser.ready.last();
    const auto token = f.browser.token.last();
    std::thread listener([&] {
        ready();
        token(QStringLiteral("t"));
    });
    listener.join();
    QVERIFY(f.workspace.urls.isEmpty());
    QVERIFY(f.auth.tokens.isEmpty());
    QTRY_COMPARE(f.auth.tokens, QStringList{QStringLiteral("t")});
    QCOMPARE(f.workspace.urls.size(), 1);
}

void TestLoginBrowser::googleRetryIgnoresEarlierAttempt()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.browser.token.last()(std::nullopt);
    QTRY_VERIFY(!f.controller.viewModel().isGoogleLoading());
    f.controller.viewModel().requestGoogleSignIn();
    QCOMPARE(f.browser.starts(), 2);
    f.browser.token.first()(QStringLiteral("old"));
    f.browser.token.last()(QStringLiteral("new"));
    QTRY_COMPARE(f.auth.tokens, QStringList{QStringLiteral("new")});
}

void TestLoginBrowser::googleResultAfterEmailSignInIsIgnored()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.browser.token.last()(QStringLiteral("token"));
    QTRY_COMPARE(f.auth.tokens.size(), 1);
    f.fill();
    f.controller.viewModel().submit(QStringLiteral("a@b"), QStringLiteral("c"));
    f.auth.succeed(1);
    QTRY_COMPARE(f.successes, 1);
    f.auth.succeed(0);
    f.browser.token.last()(QStringLiteral("late"));
    QCoreApplication::processEvents();
    QCOMPARE(f.successes, 1);
    QCOMPARE(f.auth.tokens.size(), 1);
}

void TestLoginBrowser::firstSignInCancelsTheOther()
{
    for (const bool emailFirst : {true, false}) {
        Fixture f;
        QVERIFY(f.show());
        click(f.google());
        f.browser.token.last()(QStringLiteral("token"));
        QTRY_COMPARE(f.auth.tokens.size(), 1);
        f.controller.viewModel().submit(QStringLiteral("a@b"), QStringLiteral("c"));
        f.auth.succeed(emailFirst ? 1 : 0);
        QTRY_COMPARE(f.successes, 1);
        // A result of the other sign-in would replace the session.
        QVERIFY(f.auth.isCancelled(emailFirst ? 0 : 1));
        QCoreApplication::processEvents();
        QCOMPARE(f.successes, 1);
        QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
    }
}

void TestLoginBrowser::emailFailureKeepsBrowserSignIn()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.fill();
    click(f.signIn());
    f.auth.fail(AuthError::invalidCredentials());
    QTRY_COMPARE(f.controller.viewModel().errorMessage(),
                 QStringLiteral("Invalid email or password"));
    // The browser sign-in is still running.
    QVERIFY(f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.browser.cancels, 0);
    f.browser.token.last()(QStringLiteral("token"));
    QTRY_COMPARE(f.auth.tokens.size(), 1);
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
}

void TestLoginBrowser::closingWhileWaitingQuits()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.log.clear();
    f.closeByUser();
    QCOMPARE(f.quits, 1);
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("Login window closed before sign-in — quitting")});
}

void TestLoginBrowser::googleFailureToOpenBrowserEndsAttempt()
{
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer.reset();
    click(f.google());
    f.browser.ready.last()();
    QTRY_COMPARE(f.workspace.urls.size(), 1);
    QVERIFY(f.controller.viewModel().isGoogleLoading());
    f.log.clear();
    f.workspace.finish(FakeWorkspace::failure());
    QTRY_VERIFY(!f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.controller.viewModel().errorMessage(),
             QStringLiteral("Could not open the browser: nobody answers"));
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("WARNING: The browser could not be opened: "
                                                 "nobody answers")});
    QCOMPARE(f.browser.cancels, 1);
    // The next attempt starts clean.
    click(f.google());
    QCOMPARE(f.browser.starts(), 2);
    QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
}

void TestLoginBrowser::lateFailureToOpenBrowserIsIgnored()
{
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer.reset();
    click(f.google());
    f.browser.ready.last()();
    f.browser.token.last()(QStringLiteral("token"));
    QTRY_COMPARE(f.auth.tokens.size(), 1);
    f.workspace.finish(FakeWorkspace::failure());
    QCoreApplication::processEvents();
    QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
}

void TestLoginBrowser::failureToOpenLinkIsShown_data()
{
    QTest::addColumn<QString>("link");
    QTest::newRow("password") << QStringLiteral("Forgot password?");
    QTest::newRow("sign up") << QStringLiteral("Sign up");
}

void TestLoginBrowser::failureToOpenLinkIsShown()
{
    QFETCH(QString, link);
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer = FakeWorkspace::failure();
    click(f.button(link));
    QTRY_COMPARE(f.controller.viewModel().errorMessage(),
                 QStringLiteral("Could not open the browser: nobody answers"));
}

void TestLoginBrowser::cancelEndsAttempt()
{
    Fixture f;
    QVERIFY(f.show());
    QVERIFY(!f.button(QStringLiteral("Cancel"))->isVisible());
    click(f.google());
    QQuickItem *cancel = f.button(QStringLiteral("Cancel"));
    QVERIFY(cancel->isVisible());
    f.log.clear();
    click(cancel);
    QVERIFY(!cancel->isVisible());
    QCOMPARE(f.log.lines, QStringList{prefix + QStringLiteral("Google sign-in cancelled")});
    QCOMPARE(f.browser.cancels, 1);
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
    QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
    QCOMPARE(f.quits, 0);
    // Late callbacks are ignored.
    f.browser.ready.last()();
    f.browser.token.last()(QStringLiteral("late"));
    QCoreApplication::processEvents();
    QVERIFY(f.workspace.urls.isEmpty());
    QVERIFY(f.auth.tokens.isEmpty());

    click(f.google());
    QCOMPARE(f.browser.starts(), 2);
    f.browser.token.last()(QStringLiteral("token"));
    QTRY_COMPARE(f.auth.tokens, QStringList{QStringLiteral("token")});
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
}

void TestLoginBrowser::cancelEndsVerification()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.browser.token.last()(QStringLiteral("token"));
    QTRY_COMPARE(f.auth.tokens.size(), 1);
    click(f.button(QStringLiteral("Cancel")));
    QVERIFY(f.auth.isCancelled(0));
    QCoreApplication::processEvents();
    QVERIFY(f.controller.viewModel().errorMessage().isEmpty());
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.successes, 0);
}

void TestLoginBrowser::cancelByKeyboardMovesFocusToGoogleButton()
{
    Fixture f;
    QVERIFY(f.show());
    f.google()->forceActiveFocus(Qt::TabFocusReason);
    f.press(Qt::Key_Return);
    QVERIFY(f.controller.viewModel().isGoogleLoading());
    f.press(Qt::Key_Tab);
    QVERIFY(f.button(QStringLiteral("Cancel"))->hasActiveFocus());
    f.press(Qt::Key_Return);
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
    QVERIFY(f.google()->hasActiveFocus());
    QCOMPARE(f.browser.cancels, 1);
}

void TestLoginBrowser::callbackRaisesWindow_data()
{
    QTest::addColumn<std::optional<QString>>("token");
    QTest::newRow("token") << std::optional(QStringLiteral("token"));
    QTest::newRow("none") << std::optional<QString>();
}

void TestLoginBrowser::callbackRaisesWindow()
{
    using Token = std::optional<QString>;
    QFETCH(Token, token);
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.controller.window().showMinimized();
    f.shell.calls.clear();
    f.browser.token.last()(token);
    QTRY_COMPARE(f.shell.calls, QStringList{QStringLiteral("activate")});
    QVERIFY(!f.controller.window().windowStates().testFlag(Qt::WindowMinimized));
    QCOMPARE(f.controller.viewModel().isGoogleLoading(), token.has_value());
}

void TestLoginBrowser::emailSignInWorksWhileWaiting()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.fill();
    QVERIFY(f.signIn()->isEnabled());
    click(f.signIn());
    QCOMPARE(f.auth.logins.size(), 1);
}

void TestLoginBrowser::destructionCancelsListener()
{
    Fixture f;
    {
        LoginWindowController controller(
            {f.engine, f.auth, f.workspace, f.shell,
             BackendEndpoints(QStringLiteral("https://backend.example")),
             std::make_unique<FakeBrowserSignIn>(f.browser), [] {}});
        controller.startGoogleSignIn();
        QCOMPARE(f.browser.cancels, 0);
    }
    QCOMPARE(f.browser.cancels, 1);
    // A late callback after destruction is ignored.
    f.browser.token.last()(QStringLiteral("late"));
    QCoreApplication::processEvents();
    QVERIFY(f.auth.tokens.isEmpty());
}

QUELLORA_TEST(QGuiApplication, TestLoginBrowser)
#include "test_login_browser.moc"
