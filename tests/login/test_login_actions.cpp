#include "LoginFixture.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

class TestLoginActions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void linksOpenInBrowser();
    void failureToOpenBrowserIsShown();
    void buttonIsEnabledWhenFormIsComplete();
    void returnInEmailSubmitsWhenComplete();
    void returnInPasswordAlwaysSubmits();
    void returnActivatesFocusedLink();
    void secondReturnWhileLoadingIsIgnored();
    void spaceAndClickSubmit();
    void clickWorksInInactiveWindow();
    void successClosesWindowAndCallsBack();
    void fieldsAreClearedAfterSuccess();
    void closingBeforeSignInQuits();
    void closingAfterSignInDoesNotQuit();
    void applicationQuitIsNotHandledAsClosing();
    void credentialsAreNotLogged();
};

void TestLoginActions::linksOpenInBrowser()
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

void TestLoginActions::failureToOpenBrowserIsShown()
{
    Fixture f;
    QVERIFY(f.show());
    f.workspace.answer = FakeWorkspace::failure();
    click(f.button(QStringLiteral("Sign up")));
    QTRY_COMPARE(f.controller.viewModel().errorMessage(),
                 QStringLiteral("Could not open the browser: nobody answers"));
    QCOMPARE(f.log.lines.last(),
             prefix + QStringLiteral("WARNING: The browser could not be opened: nobody answers"));
}

void TestLoginActions::buttonIsEnabledWhenFormIsComplete()
{
    Fixture f;
    QVERIFY(f.show());
    QVERIFY(!f.signIn()->isEnabled());
    QCOMPARE(f.signIn()->property("opacityFactor").toReal(), 0.45);
    f.email()->setProperty("text", QStringLiteral("   "));
    f.password()->setProperty("text", QStringLiteral("secret"));
    QVERIFY(!f.signIn()->isEnabled());
    f.email()->setProperty("text", QStringLiteral(" a@b"));
    QVERIFY(f.signIn()->isEnabled());
    QCOMPARE(f.signIn()->property("opacityFactor").toReal(), 1.0);
    f.password()->setProperty("text", QString());
    QVERIFY(!f.signIn()->isEnabled());
    click(f.signIn());
    QVERIFY(f.auth.logins.isEmpty());
}

void TestLoginActions::returnInEmailSubmitsWhenComplete()
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

void TestLoginActions::returnInPasswordAlwaysSubmits()
{
    Fixture f;
    QVERIFY(f.show());
    f.press(Qt::Key_Tab);
    QVERIFY(f.password()->hasActiveFocus());
    f.press(Qt::Key_Enter);
    QCOMPARE(f.auth.logins.size(), 1);
    QVERIFY(f.auth.logins.first().first.isEmpty());
}

void TestLoginActions::returnActivatesFocusedLink()
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

void TestLoginActions::secondReturnWhileLoadingIsIgnored()
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

void TestLoginActions::spaceAndClickSubmit()
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

void TestLoginActions::clickWorksInInactiveWindow()
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

void TestLoginActions::successClosesWindowAndCallsBack()
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

void TestLoginActions::fieldsAreClearedAfterSuccess()
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

void TestLoginActions::closingBeforeSignInQuits()
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

void TestLoginActions::closingAfterSignInDoesNotQuit()
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

void TestLoginActions::applicationQuitIsNotHandledAsClosing()
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

void TestLoginActions::credentialsAreNotLogged()
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

QUELLORA_TEST(QGuiApplication, TestLoginActions)
#include "test_login_actions.moc"
