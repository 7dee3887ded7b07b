#include "LoginFixture.h"
#include "platform/ScreenSource.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QPromise>
#include <QQuickItem>
#include <QTest>

using namespace quellora;

using Access = ScreenSource::Access;
using Question = LoginViewModel::PictureQuestion;

namespace {

/// A desktop whose question the test answers.
class FakeScreenSource : public ScreenSource
{
public:
    QFuture<Picture> take(Area) override { return {}; }
    Access access() const override { return current; }
    QFuture<Access> ask() override
    {
        ++questions;
        promise = QPromise<Access>();
        promise.start();
        return promise.future();
    }
    void answer(Access access)
    {
        current = access;
        promise.addResult(access);
        promise.finish();
    }

    Access current = Access::NotAsked;
    int questions = 0;
    QPromise<Access> promise;
};

} // namespace

/// The desktop's question for pictures, between sign-in and the panel.
class TestPictureQuestion : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void nothingIsAskedWithoutNeed_data()
    {
        QTest::addColumn<Access>("access");
        QTest::newRow("granted") << Access::Granted;
        QTest::newRow("refused") << Access::Refused;
        QTest::newRow("unavailable") << Access::Unavailable;
        QTest::newRow("unknown") << Access::Unknown;
    }
    void nothingIsAskedWithoutNeed()
    {
        QFETCH(Access, access);
        FakeScreenSource source;
        source.current = access;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        QCOMPARE(fixture.successes, 1);
        QVERIFY(!fixture.controller.window().isVisible());
        QCOMPARE(source.questions, 0);
    }

    void desktopAsksWhenTheUserIsReady()
    {
        FakeScreenSource source;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        // The window stays, with the focus, and says why.
        QCOMPARE(fixture.successes, 0);
        QVERIFY(fixture.controller.window().isVisible());
        QCOMPARE(fixture.controller.viewModel().pictureQuestion(), Question::Announced);
        QCOMPARE(source.questions, 0);
        QQuickItem *proceed = fixture.button(QStringLiteral("Continue"));
        QVERIFY(proceed && proceed->hasActiveFocus());
        QVERIFY(QMetaObject::invokeMethod(proceed, "clicked"));
        QVERIFY(QMetaObject::invokeMethod(proceed, "clicked"));
        QCOMPARE(source.questions, 1);
        QCOMPARE(fixture.controller.viewModel().pictureQuestion(), Question::Asked);
        QVERIFY(fixture.controller.window().isVisible());
        source.answer(Access::Granted);
        QTRY_COMPARE(fixture.successes, 1);
        QVERIFY(!fixture.controller.window().isVisible());
        QCOMPARE(fixture.quits, 0);
    }

    void refusalGoesOn()
    {
        FakeScreenSource source;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        Q_EMIT fixture.controller.viewModel().pictureQuestionConfirmed();
        source.answer(Access::Refused);
        QTRY_COMPARE(fixture.successes, 1);
        QVERIFY(!fixture.controller.window().isVisible());
    }

    void questionCanBePostponed_data()
    {
        QTest::addColumn<bool>("isAsked");
        QTest::newRow("before") << false;
        QTest::newRow("while the desktop asks") << true;
    }
    void questionCanBePostponed()
    {
        QFETCH(bool, isAsked);
        FakeScreenSource source;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        if (isAsked)
            Q_EMIT fixture.controller.viewModel().pictureQuestionConfirmed();
        Q_EMIT fixture.controller.viewModel().pictureQuestionPostponed();
        QCOMPARE(fixture.successes, 1);
        QVERIFY(!fixture.controller.window().isVisible());
        QCOMPARE(source.promise.isCanceled(), isAsked);
        QCoreApplication::processEvents();
        QCOMPARE(fixture.successes, 1);
    }

    void closingTheWindowPostpones()
    {
        FakeScreenSource source;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        fixture.closeByUser();
        QTRY_COMPARE(fixture.successes, 1);
        QCOMPARE(fixture.quits, 0);
    }

    void quittingIsNoSuccess()
    {
        FakeScreenSource source;
        Fixture fixture(false, &source);
        fixture.controller.showWindow();
        Q_EMIT fixture.controller.viewModel().signedIn();
        QEvent quit(QEvent::Quit);
        QCoreApplication::sendEvent(qApp, &quit);
        fixture.closeByUser();
        QCoreApplication::processEvents();
        QCOMPARE(fixture.successes, 0);
        QCOMPARE(fixture.quits, 0);
    }
};

QUELLORA_TEST(QGuiApplication, TestPictureQuestion)
#include "test_picture_question.moc"
