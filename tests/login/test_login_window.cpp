#include "LoginFixture.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

class TestLoginWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void windowProperties();
    void showWindowActivates();
    void texts();
    void geometry();
    void emailIsFocusedInitially();
    void tabOrder();
    void pointingHandCursors();
    void loadingState();
    void errorState();
    void twoLineErrorShiftsFurther();
    void followsTextSize();
};

/// The first two of the visible texts below @p item that overlap or leave the window.
QString fault(QQuickItem *root, const QSizeF &window)
{
    QList<std::pair<QString, QRectF>> texts;
    const std::function<void(QQuickItem *)> collect = [&](QQuickItem *item) {
        for (QQuickItem *child : item->childItems()) {
            if (!child->isVisible())
                continue;
            if (child->inherits("QQuickText") && !child->property("text").toString().isEmpty()) {
                QRectF content(0, 0, child->property("contentWidth").toReal(),
                               child->property("contentHeight").toReal());
                content.moveCenter(QRectF({0, 0}, child->size()).center());
                texts.append({child->property("text").toString(), child->mapRectToScene(content)});
            }
            collect(child);
        }
    };
    collect(root);
    for (qsizetype i = 0; i < texts.size(); ++i) {
        if (!QRectF({0, 0}, window).contains(texts[i].second))
            return texts[i].first + QStringLiteral(" leaves the window");
        for (qsizetype j = 0; j < i; ++j) {
            const QRectF common = texts[i].second & texts[j].second;
            if (common.width() > 1 && common.height() > 2)
                return texts[i].first + QStringLiteral(" covers ") + texts[j].first;
        }
    }
    return {};
}

void TestLoginWindow::followsTextSize()
{
    Fixture f;
    FakeAppearance system;
    followTextScale(f.engine, system);
    QVERIFY(f.show());
    const QQuickView &window = f.controller.window();
    const auto check = [&] {
        for (const bool isWaiting : {false, true}) {
            f.controller.viewModel().setGoogleLoading(isWaiting);
            f.controller.viewModel().setErrorMessage({});
            QTRY_COMPARE(fault(f.root(), window.size()), QString());
            f.controller.viewModel().setErrorMessage(
                QStringLiteral("Sign-in failed. Please check your connection and try again."));
            QTRY_COMPARE(fault(f.root(), window.size()), QString());
        }
        f.controller.viewModel().setGoogleLoading(false);
        f.controller.viewModel().setErrorMessage({});
    };
    system.setTextScale(1.25);
    QCOMPARE(window.size(), QSize(505, 542));
    QCOMPARE(window.maximumSize(), window.size());
    check();
    system.setTextScale(1.5);
    check();
    system.setTextScale(0.8);
    QTRY_COMPARE(window.size(), QSize(420, 480));
    check();
    // Larger than the screen: the form scrolls to the field with the focus.
    system.setTextScale(3);
    const QSize room = window.screen()->availableSize();
    QVERIFY(window.height() <= room.height() && window.width() <= room.width());
    const QQuickItem *scroller = findItem(f.root(), "objectName", QStringLiteral("loginScroller"));
    QTRY_VERIFY(scroller->property("overflows").toBool());
    QQuickItem *last = findItem(f.root(), "name", QStringLiteral("Don't have an account? Sign up"));
    last->forceActiveFocus(Qt::TabFocusReason);
    QTRY_VERIFY(QRectF({0, 0}, window.size()).contains(areaOf(last)));
    system.setTextScale(1);
    QTRY_COMPARE(window.size(), QSize(420, 480));
}

void TestLoginWindow::windowProperties()
{
    Fixture f;
    QQuickView &window = f.controller.window();
    QCOMPARE(f.log.lines, QStringList{prefix + QStringLiteral("Login window created")});
    QVERIFY(!window.isVisible());
    QCOMPARE(f.shell.ordinary.data(), &window);
    QCOMPARE(window.title(), QStringLiteral("Quellora"));
    QTRY_COMPARE(window.size(), QSize(420, 480));
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
    f.shell.calls.clear();
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

void TestLoginWindow::geometry()
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

void TestLoginWindow::emailIsFocusedInitially()
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
    QCOMPARE(f.google()->property("opacityFactor").toReal(), 0.45);
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

void TestLoginWindow::twoLineErrorShiftsFurther()
{
    Fixture f;
    QVERIFY(f.show());
    f.controller.viewModel().setErrorMessage(
        QStringLiteral("Connection error (-1). Check your internet connection. Then try again."));
    QCOMPARE(areaOf(f.signIn()).top(), 262 + 38);
}

QUELLORA_TEST(QGuiApplication, TestLoginWindow)
#include "test_login_window.moc"
