#include "ControllerFixture.h"
#include "support/FreedBlocks.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QTest>
#include <QTimer>

using namespace quellora;

class TestMemoryReturn : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void freedMemoryGoesBackAfterAPage()
    {
        ControllerFixture f;
        auto *timer = f.overlay->findChild<QTimer *>(QStringLiteral("memoryReturnTimer"));
        QVERIFY(timer);
        QVERIFY(!timer->isActive());
        QTRY_COMPARE(f.surface->loads.size(), 1);
        f.surface->finishLoad();
        QVERIFY(timer->isActive());
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->intervalAsDuration(), std::chrono::seconds(5));

        const FreedBlocks blocks;
        const std::size_t before = FreedBlocks::resident();
        QMetaObject::invokeMethod(timer, "timeout");
        QVERIFY(FreedBlocks::resident() + FreedBlocks::size / 2 < before);
    }

    void pagesThatFollowDoNotPutItOff()
    {
        ControllerFixture f;
        auto *timer = f.overlay->findChild<QTimer *>(QStringLiteral("memoryReturnTimer"));
        QVERIFY(timer);
        QTRY_COMPARE(f.surface->loads.size(), 1);
        f.surface->finishLoad();
        const int all = timer->interval();
        QTRY_VERIFY(timer->remainingTime() < all);
        f.surface->finishLoad();
        QVERIFY(timer->remainingTime() < all);
    }
};

QUELLORA_TEST(QGuiApplication, TestMemoryReturn)
#include "test_memory_return.moc"
