#include "FakeSignIn.h"
#include "login/LoginViewModel.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

namespace {

const QString email = QStringLiteral("you@example.com");
const QString secret = QStringLiteral("correct horse");

} // namespace

class TestLoginViewModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void startsIdle();
    void completeness_data();
    void completeness();
    void sendsTextsExactlyAsTyped();
    void submitDoesNotCheckCompleteness();
    void secondSubmitWhileRunningIsIgnored();
    void loadingEndsBeforeSignedIn();
    void failures_data();
    void failures();
    void requestWithoutResultShowsGenericError();
    void submitClearsError();
    void googleRequestsAreIgnoredWhileBusy();
    void googleIsNotOfferedWithoutListener();
};

void TestLoginViewModel::startsIdle()
{
    FakeAuthService auth;
    const LoginViewModel model(auth, true);
    QVERIFY(model.errorMessage().isEmpty());
    QVERIFY(!model.isLoading());
    QVERIFY(!model.isGoogleLoading());
}

void TestLoginViewModel::completeness_data()
{
    QTest::addColumn<QString>("typedEmail");
    QTest::addColumn<QString>("typedPassword");
    QTest::addColumn<bool>("complete");
    QTest::newRow("both") << email << secret << true;
    QTest::newRow("both empty") << QString() << QString() << false;
    QTest::newRow("no e-mail") << QString() << secret << false;
    QTest::newRow("no password") << email << QString() << false;
    QTest::newRow("blank e-mail") << QStringLiteral(" \t ") << secret << false;
    QTest::newRow("surrounding blanks") << QStringLiteral("  a@b ") << secret << true;
    QTest::newRow("password is not trimmed") << email << QStringLiteral(" ") << true;
}

void TestLoginViewModel::completeness()
{
    QFETCH(QString, typedEmail);
    QFETCH(QString, typedPassword);
    FakeAuthService auth;
    const LoginViewModel model(auth, true);
    QTEST(model.isComplete(typedEmail, typedPassword), "complete");
}

void TestLoginViewModel::sendsTextsExactlyAsTyped()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    model.submit(QStringLiteral(" you@example.com "), QStringLiteral(" pass word "));
    QCOMPARE(auth.logins.size(), 1);
    QCOMPARE(auth.logins.first().first, QStringLiteral(" you@example.com "));
    QCOMPARE(auth.logins.first().second, QStringLiteral(" pass word "));
    QVERIFY(model.isLoading());
}

void TestLoginViewModel::submitDoesNotCheckCompleteness()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    model.submit(QString(), secret);
    QCOMPARE(auth.logins.size(), 1);
}

void TestLoginViewModel::secondSubmitWhileRunningIsIgnored()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    model.submit(email, secret);
    model.submit(email, secret);
    QCOMPARE(auth.logins.size(), 1);
    QSignalSpy failed(&model, &LoginViewModel::submitFailed);
    auth.fail(AuthError::invalidCredentials());
    QVERIFY(failed.wait());
    model.submit(email, secret);
    QCOMPARE(auth.logins.size(), 2);
}

void TestLoginViewModel::loadingEndsBeforeSignedIn()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    bool loadingAtSuccess = true;
    connect(&model, &LoginViewModel::signedIn, this, [&] { loadingAtSuccess = model.isLoading(); });
    QSignalSpy signedIn(&model, &LoginViewModel::signedIn);
    model.submit(email, secret);
    auth.succeed();
    QVERIFY(signedIn.wait());
    QVERIFY(!loadingAtSuccess);
    QVERIFY(model.errorMessage().isEmpty());
}

void TestLoginViewModel::failures_data()
{
    QTest::addColumn<AuthError>("error");
    QTest::addColumn<QString>("text");
    QTest::newRow("401") << AuthError::invalidCredentials()
                         << QStringLiteral("Invalid email or password");
    QTest::newRow("403") << AuthError::accountSuspended()
                         << QStringLiteral("Your account has been suspended. Contact support.");
    QTest::newRow("unreadable") << AuthError::decodingError()
                                << QStringLiteral("Unexpected response from server");
    QTest::newRow("no network") << AuthError::networkError(-1)
                                << QStringLiteral(
                                       "Connection error (-1). Check your internet connection.");
    QTest::newRow("500") << AuthError::networkError(500)
                         << QStringLiteral(
                                "Connection error (500). Check your internet connection.");
}

void TestLoginViewModel::failures()
{
    QFETCH(AuthError, error);
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    QSignalSpy failed(&model, &LoginViewModel::submitFailed);
    QSignalSpy signedIn(&model, &LoginViewModel::signedIn);
    model.submit(email, secret);
    auth.fail(error);
    QVERIFY(failed.wait());
    QTEST(model.errorMessage(), "text");
    QVERIFY(!model.isLoading());
    QCOMPARE(signedIn.count(), 0);
    QCOMPARE(auth.logins.size(), 1);
}

void TestLoginViewModel::requestWithoutResultShowsGenericError()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    QSignalSpy failed(&model, &LoginViewModel::submitFailed);
    model.submit(email, secret);
    auth.drop();
    QVERIFY(failed.wait());
    QCOMPARE(model.errorMessage(), QStringLiteral("Something went wrong. Please try again."));
    QVERIFY(!model.isLoading());
}

void TestLoginViewModel::submitClearsError()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    model.setErrorMessage(QStringLiteral("Invalid email or password"));
    model.submit(email, secret);
    QVERIFY(model.errorMessage().isEmpty());
}

void TestLoginViewModel::googleRequestsAreIgnoredWhileBusy()
{
    FakeAuthService auth;
    LoginViewModel model(auth, true);
    QSignalSpy requested(&model, &LoginViewModel::googleSignInRequested);
    model.requestGoogleSignIn();
    QCOMPARE(requested.count(), 1);
    model.setGoogleLoading(true);
    model.requestGoogleSignIn();
    QCOMPARE(requested.count(), 1);
    model.setGoogleLoading(false);
    model.submit(email, secret);
    model.requestGoogleSignIn();
    QCOMPARE(requested.count(), 1);
}

void TestLoginViewModel::googleIsNotOfferedWithoutListener()
{
    FakeAuthService auth;
    LoginViewModel model(auth, false);
    QSignalSpy requested(&model, &LoginViewModel::googleSignInRequested);
    model.requestGoogleSignIn();
    QCOMPARE(requested.count(), 0);
    QVERIFY(!model.offersGoogle());
}

QUELLORA_TEST(QCoreApplication, TestLoginViewModel)
#include "test_login_view_model.moc"
