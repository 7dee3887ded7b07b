#include "FakeSignIn.h"
#include "QuickItems.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "login/LoginWindowController.h"
#include "ui/Ui.h"

#include <QQmlEngine>
#include <QScreen>
#include <QSignalSpy>
#include <QtTest>

#include <thread>

using namespace quellora;

namespace {

const QString prefix = QStringLiteral("[LoginWindowController] ");

/// One window with everything around it faked.
struct Fixture
{
    explicit Fixture(bool withBrowser = true)
        : controller({engine, auth, workspace, shell,
                      BackendEndpoints(QStringLiteral("https://backend.example")),
                      withBrowser ? std::make_unique<FakeBrowserSignIn>(browser) : nullptr,
                      [this] { ++quits; }})
    {
        controller.onLoginSuccess = [this] {
            ++successes;
            visibleAtSuccess = controller.window().isVisible();
        };
    }

    /// Shows the window and waits until it can take keys.
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
    /// The close button of the title bar.
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

} // namespace

class TestLoginWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void windowTraits();
    void showWindowActivates();
    void texts();
    void measures();
    void emailHasTheFocusAtOpen();
    void tabOrder();
    void pointingHandCursors();
    void linksOpenInTheBrowser();
    void browserThatCannotOpenIsLogged();
    void buttonFollowsCompleteness();
    void returnInEmailPressesSignInWhenComplete();
    void returnInPasswordSubmitsAlways();
    void returnOnALinkFollowsIt();
    void secondReturnWhileLoadingSendsNothing();
    void loadingState();
    void errorState();
    void twoLineErrorPushesFurther();
    void spaceAndClickPressSignIn();
    void clickOnInactiveWindowActs();
    void successClosesAndReports();
    void passwordLeavesTheFieldAfterSuccess();
    void closingBeforeSignInQuits();
    void closingAfterSignInDoesNotQuit();
    void quittingElsewhereIsNotTakenForClosing();
    void googleIsHiddenWithoutAListener();
    void googleOpensTheBrowserWhenReady();
    void googleWaitingState();
    void googleWithoutTokenFails();
    void googleEmptyTokenGoesOn();
    void googleTokenSignsIn();
    void googleTokenRejected();
    void googleVerificationDropped();
    void googleCallbacksFromAnotherThread();
    void googleAgainAfterAnErrorIgnoresTheOldListener();
    void googleAnswerAfterEmailSignInIsIgnored();
    void googleBrowserThatCannotOpen();
    void emailStaysUsableWhileWaiting();
    void destructionCancelsTheListener();
    void nothingSecretIsLogged();
};

void TestLoginWindow::windowTraits()
{
    Fixture f;
    QQuickView &window = f.controller.window();
    QCOMPARE(f.log.lines, QStringList{prefix + QStringLiteral("Login window created")});
    QVERIFY(!window.isVisible());
    QCOMPARE(window.title(), QStringLiteral("Quellora"));
    QCOMPARE(window.size(), QSize(420, 480));
    QCOMPARE(window.minimumSize(), QSize(420, 480));
    QCOMPARE(window.maximumSize(), QSize(420, 480));
    QCOMPARE(window.color().name(), QStringLiteral("#131313"));
    QCOMPARE(window.type(), Qt::Window);
    QVERIFY(!window.flags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(window.flags().testFlag(Qt::WindowTitleHint));
    QVERIFY(window.flags().testFlag(Qt::WindowCloseButtonHint));
    QVERIFY(window.flags().testFlag(Qt::WindowMinimizeButtonHint));
    QVERIFY(!window.flags().testFlag(Qt::WindowMaximizeButtonHint));
}

void TestLoginWindow::showWindowActivates()
{
    Fixture f;
    f.log.clear();
    f.controller.showWindow();
    QVERIFY(f.controller.window().isVisible());
    QCOMPARE(f.shell.calls, QStringList{QStringLiteral("activate")});
    QCOMPARE(f.shell.activated.data(), &f.controller.window());
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("Activated app and made login window key")});
    const QPoint middle = f.controller.window().screen()->availableGeometry().center();
    QVERIFY((f.controller.window().geometry().center() - middle).manhattanLength() <= 2);
}

void TestLoginWindow::texts()
{
    Fixture f;
    QVERIFY(f.show());
    QCOMPARE(visibleTexts(f.root()),
             (QStringList{QStringLiteral("Quellora"), QStringLiteral("Email"),
                          QStringLiteral("Password"), QStringLiteral("Forgot password?"),
                          QStringLiteral("Sign in"), QStringLiteral("or"),
                          QStringLiteral("Sign in with Google"),
                          QStringLiteral("Don't have an account?"), QStringLiteral("Sign up")}));
}

void TestLoginWindow::measures()
{
    Fixture f;
    QVERIFY(f.show());
    QCOMPARE(areaOf(f.label(QStringLiteral("Quellora"))), QRectF(40, 28, 340, 32));
    QCOMPARE(areaOf(f.label(QStringLiteral("Email"))).topLeft(), QPointF(40, 80));
    QCOMPARE(areaOf(f.email()), QRectF(40, 102, 340, 40));
    QCOMPARE(areaOf(f.label(QStringLiteral("Password"))).topLeft(), QPointF(40, 156));
    QCOMPARE(areaOf(f.password()), QRectF(40, 178, 340, 40));
    const QRectF forgot = areaOf(f.button(QStringLiteral("Forgot password?")));
    QCOMPARE(forgot.right(), 380);
    QCOMPARE(forgot.top(), 222);
    QCOMPARE(forgot.height(), 28);
    QCOMPARE(areaOf(f.signIn()), QRectF(40, 262, 340, 40));
    QCOMPARE(areaOf(f.label(QStringLiteral("or"))->parentItem()), QRectF(40, 316, 340, 16));
    QCOMPARE(areaOf(f.google()), QRectF(40, 346, 340, 40));
    const QRectF signUp = areaOf(f.button(QStringLiteral("Sign up")));
    QCOMPARE(signUp.top(), 436);
    QCOMPARE(signUp.height(), 28);
    QVERIFY(qAbs(signUp.center().x() - 210) <= 1);
}

void TestLoginWindow::emailHasTheFocusAtOpen()
{
    Fixture f;
    QVERIFY(f.show());
    QVERIFY(f.email()->hasActiveFocus());
    f.type(QStringLiteral("a@b"));
    QCOMPARE(f.email()->property("text").toString(), QStringLiteral("a@b"));
}

void TestLoginWindow::tabOrder()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    QStringList order;
    for (int i = 0; i < 6; ++i) {
        QQuickItem *item = f.controller.window().activeFocusItem();
        order << (item->property("name").toString().isEmpty() ? item->property("text").toString()
                                                              : item->property("name").toString());
        f.press(Qt::Key_Tab);
    }
    QCOMPARE(order, (QStringList{QStringLiteral("Email"), QStringLiteral("Password"),
                                 QStringLiteral("Forgot password?"), QStringLiteral("Sign in"),
                                 QStringLiteral("Sign in with Google"),
                                 QStringLiteral("Don't have an account? Sign up")}));
    QVERIFY(f.email()->hasActiveFocus());
}

void TestLoginWindow::pointingHandCursors()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    for (const QString &text : {QStringLiteral("Forgot password?"), QStringLiteral("Sign in"),
                                QStringLiteral("Sign in with Google"), QStringLiteral("Sign up")}) {
        QQuickItem *item = f.button(text);
        QTest::mouseMove(&f.controller.window(), areaOf(item).center().toPoint());
        QTRY_COMPARE(f.controller.window().cursor().shape(), Qt::PointingHandCursor);
        QTest::mouseMove(&f.controller.window(), QPoint(8, 8));
        QTRY_COMPARE(f.controller.window().cursor().shape(), Qt::ArrowCursor);
    }
}

void TestLoginWindow::linksOpenInTheBrowser()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.button(QStringLiteral("Forgot password?")));
    QCOMPARE(f.workspace.urls,
             QList<QUrl>{QUrl(QStringLiteral("https://backend.example/reset-password"))});
    click(f.button(QStringLiteral("Sign up")));
    QCOMPARE(f.workspace.urls.last(), QUrl(QStringLiteral("https://backend.example/signup")));
    QCOMPARE(f.workspace.urls.size(), 2);
}

void TestLoginWindow::browserThatCannotOpenIsLogged()
{
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer = Capability::unsupported(QStringLiteral("no browser"));
    click(f.button(QStringLiteral("Sign up")));
    QCOMPARE(f.log.lines.last(),
             prefix + QStringLiteral("WARNING: The browser could not be opened: no browser"));
}

void TestLoginWindow::buttonFollowsCompleteness()
{
    Fixture f;
    QVERIFY(f.show());
    QVERIFY(!f.signIn()->isEnabled());
    QCOMPARE(f.signIn()->property("share").toReal(), 0.45);
    f.email()->setProperty("text", QStringLiteral("   "));
    f.password()->setProperty("text", QStringLiteral("secret"));
    QVERIFY(!f.signIn()->isEnabled());
    f.email()->setProperty("text", QStringLiteral(" a@b"));
    QVERIFY(f.signIn()->isEnabled());
    QCOMPARE(f.signIn()->property("share").toReal(), 1.0);
    f.password()->setProperty("text", QString());
    QVERIFY(!f.signIn()->isEnabled());
    click(f.signIn());
    QVERIFY(f.auth.logins.isEmpty());
}

void TestLoginWindow::returnInEmailPressesSignInWhenComplete()
{
    Fixture f;
    QVERIFY(f.show());
    f.type(QStringLiteral(" a@b "));
    f.press(Qt::Key_Return);
    QVERIFY(f.auth.logins.isEmpty());
    f.password()->setProperty("text", QStringLiteral("secret"));
    f.press(Qt::Key_Return);
    QCOMPARE(f.auth.logins.size(), 1);
    QCOMPARE(f.auth.logins.first().first, QStringLiteral(" a@b "));
    QCOMPARE(f.auth.logins.first().second, QStringLiteral("secret"));
}

void TestLoginWindow::returnInPasswordSubmitsAlways()
{
    Fixture f;
    QVERIFY(f.show());
    f.press(Qt::Key_Tab);
    QVERIFY(f.password()->hasActiveFocus());
    f.press(Qt::Key_Enter);
    QCOMPARE(f.auth.logins.size(), 1);
    QVERIFY(f.auth.logins.first().first.isEmpty());
}

void TestLoginWindow::returnOnALinkFollowsIt()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Tab);
    f.press(Qt::Key_Tab);
    f.press(Qt::Key_Return);
    QCOMPARE(f.workspace.urls.size(), 1);
    QVERIFY(f.auth.logins.isEmpty());
    f.press(Qt::Key_Tab);
    f.press(Qt::Key_Return);
    QCOMPARE(f.auth.logins.size(), 1);
}

void TestLoginWindow::secondReturnWhileLoadingSendsNothing()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Tab);
    f.press(Qt::Key_Return);
    f.press(Qt::Key_Return);
    f.press(Qt::Key_Tab, Qt::ShiftModifier);
    f.press(Qt::Key_Return);
    QCOMPARE(f.auth.logins.size(), 1);
}

void TestLoginWindow::loadingState()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Return);
    QVERIFY(f.controller.viewModel().isLoading());
    QQuickItem *spinner = f.named(QStringLiteral("Signing in"));
    QVERIFY(spinner->isVisible());
    QCOMPARE(areaOf(spinner), QRectF(200, 272, 20, 20));
    QVERIFY(!f.signIn()->isVisible());
    for (QQuickItem *field : {f.email(), f.password()}) {
        QCOMPARE(field->opacity(), 0.55);
        QVERIFY(field->property("readOnly").toBool());
    }
    QVERIFY(!f.google()->isEnabled());
    QCOMPARE(f.google()->property("share").toReal(), 0.45);
    f.type(QStringLiteral("x"));
    QCOMPARE(f.email()->property("text").toString(), QStringLiteral("you@example.com"));
    click(f.google());
    QCOMPARE(f.browser.starts(), 0);
}

void TestLoginWindow::errorState()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Return);
    QSignalSpy failed(&f.controller.viewModel(), &LoginViewModel::submitFailed);
    f.auth.fail(AuthError::invalidCredentials());
    QVERIFY(failed.wait());
    QQuickItem *error = f.label(QStringLiteral("Invalid email or password"));
    QVERIFY(error && error->isVisible());
    QCOMPARE(areaOf(error), QRectF(40, 252, 340, 18));
    QCOMPARE(areaOf(f.signIn()).top(), 282);
    QCOMPARE(areaOf(f.google()).top(), 366);
    QCOMPARE(areaOf(f.button(QStringLiteral("Sign up"))).top(), 436);
    QVERIFY(f.signIn()->isVisible());
    QVERIFY(f.password()->hasActiveFocus());
    QCOMPARE(f.password()->property("selectionStart").toInt(), 0);
    QCOMPARE(f.password()->property("selectionEnd").toInt(), 6);
    // Typing replaces the wrong password.
    f.type(QStringLiteral("z"));
    f.press(Qt::Key_Return);
    QCOMPARE(f.auth.logins.last().second, QStringLiteral("z"));
    QVERIFY(!error->isVisible());
}

void TestLoginWindow::twoLineErrorPushesFurther()
{
    Fixture f;
    QVERIFY(f.show());
    f.controller.viewModel().setErrorMessage(
        QStringLiteral("Connection error (-1). Check your internet connection. Then try again."));
    QCOMPARE(areaOf(f.signIn()).top(), 262 + 38);
}

void TestLoginWindow::spaceAndClickPressSignIn()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    click(f.signIn());
    QCOMPARE(f.auth.logins.size(), 1);
    QSignalSpy failed(&f.controller.viewModel(), &LoginViewModel::submitFailed);
    f.auth.fail(AuthError::decodingError());
    QVERIFY(failed.wait());
    f.press(Qt::Key_Tab);
    f.press(Qt::Key_Tab);
    QVERIFY(f.signIn()->hasActiveFocus());
    f.press(Qt::Key_Space);
    QCOMPARE(f.auth.logins.size(), 2);
}

void TestLoginWindow::clickOnInactiveWindowActs()
{
    Fixture f;
    QVERIFY(f.show());
    QQuickWindow other;
    other.show();
    other.requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QVERIFY(!f.controller.window().isActive());
    click(f.button(QStringLiteral("Sign up")));
    QCOMPARE(f.workspace.urls.size(), 1);
}

void TestLoginWindow::successClosesAndReports()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.log.clear();
    f.press(Qt::Key_Return);
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("Login successful, closing login window")});
    QVERIFY(f.controller.didAuthenticate());
    QVERIFY(!f.visibleAtSuccess);
    QCOMPARE(f.browser.cancels, 1);
    QCOMPARE(f.quits, 0);
}

void TestLoginWindow::passwordLeavesTheFieldAfterSuccess()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Return);
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
    QCOMPARE(f.password()->property("text").toString(), QString());
    QCOMPARE(f.email()->property("text").toString(), QString());
}

void TestLoginWindow::closingBeforeSignInQuits()
{
    Fixture f;
    QVERIFY(f.show());
    f.log.clear();
    f.closeByUser();
    QCOMPARE(f.log.lines,
             QStringList{prefix + QStringLiteral("Login window closed before sign-in — quitting")});
    QCOMPARE(f.quits, 1);
    QVERIFY(!f.controller.window().isVisible());
    f.controller.window().show();
    f.closeByUser();
    QCOMPARE(f.quits, 1);
}

void TestLoginWindow::closingAfterSignInDoesNotQuit()
{
    Fixture f;
    QVERIFY(f.show());
    f.fill();
    f.press(Qt::Key_Return);
    f.auth.succeed();
    QTRY_COMPARE(f.successes, 1);
    f.log.clear();
    f.closeByUser();
    QCOMPARE(f.quits, 0);
    QVERIFY(f.log.lines.isEmpty());
}

void TestLoginWindow::quittingElsewhereIsNotTakenForClosing()
{
    Fixture f;
    QVERIFY(f.show());
    f.log.clear();
    QEvent quit(QEvent::Quit);
    QCoreApplication::sendEvent(qApp, &quit);
    QVERIFY(!f.controller.window().isVisible());
    QCOMPARE(f.quits, 0);
    QVERIFY(f.log.lines.isEmpty());
}

void TestLoginWindow::googleIsHiddenWithoutAListener()
{
    Fixture f(false);
    QVERIFY(f.show());
    QVERIFY(!f.google()->isVisible());
    QVERIFY(!visibleTexts(f.root()).contains(QStringLiteral("or")));
    f.controller.startGoogleSignIn();
    QVERIFY(!f.controller.viewModel().isGoogleLoading());
}

void TestLoginWindow::googleOpensTheBrowserWhenReady()
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

void TestLoginWindow::googleWaitingState()
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

void TestLoginWindow::googleWithoutTokenFails()
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

void TestLoginWindow::googleEmptyTokenGoesOn()
{
    Fixture f;
    f.controller.handleOAuthCallback(QString());
    QCOMPARE(f.auth.tokens, QStringList{QString()});
}

void TestLoginWindow::googleTokenSignsIn()
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

void TestLoginWindow::googleTokenRejected()
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

void TestLoginWindow::googleVerificationDropped()
{
    Fixture f;
    f.controller.handleOAuthCallback(QStringLiteral("token"));
    f.auth.drop();
    QTRY_COMPARE(f.controller.viewModel().errorMessage(),
                 QStringLiteral("Google sign-in failed. Please try again."));
}

void TestLoginWindow::googleCallbacksFromAnotherThread()
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

void TestLoginWindow::googleAgainAfterAnErrorIgnoresTheOldListener()
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

void TestLoginWindow::googleAnswerAfterEmailSignInIsIgnored()
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

void TestLoginWindow::googleBrowserThatCannotOpen()
{
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer = Capability::unsupported(QStringLiteral("no browser"));
    click(f.google());
    f.browser.ready.last()();
    QTRY_VERIFY(!f.controller.viewModel().isGoogleLoading());
    QCOMPARE(f.controller.viewModel().errorMessage(),
             QStringLiteral("Google sign-in failed. Please try again."));
    QCOMPARE(f.browser.cancels, 1);
}

void TestLoginWindow::emailStaysUsableWhileWaiting()
{
    Fixture f;
    QVERIFY(f.show());
    click(f.google());
    f.fill();
    QVERIFY(f.signIn()->isEnabled());
    click(f.signIn());
    QCOMPARE(f.auth.logins.size(), 1);
}

void TestLoginWindow::destructionCancelsTheListener()
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
    // An answer that was under way already finds nobody and does no harm.
    f.browser.token.last()(QStringLiteral("late"));
    QCoreApplication::processEvents();
    QVERIFY(f.auth.tokens.isEmpty());
}

void TestLoginWindow::nothingSecretIsLogged()
{
    Fixture f;
    QVERIFY(f.show());
    f.type(QStringLiteral("who@example.com"));
    f.press(Qt::Key_Tab);
    f.type(QStringLiteral("hunter2hunter2"));
    f.press(Qt::Key_Return);
    f.auth.fail(AuthError::networkError(500));
    QTRY_VERIFY(!f.controller.viewModel().isLoading());
    f.controller.handleOAuthCallback(QStringLiteral("token-123"));
    f.auth.fail(AuthError::networkError(500));
    QTRY_VERIFY(f.log.lines.last().contains(QStringLiteral("verification failed")));
    const QString everything = f.log.lines.join(QLatin1Char('\n'));
    QVERIFY(!everything.contains(QStringLiteral("hunter2")));
    QVERIFY(!everything.contains(QStringLiteral("who@example.com")));
    QVERIFY(!everything.contains(QStringLiteral("token-123")));
}

QTEST_MAIN(TestLoginWindow)
#include "tst_login_window.moc"
