#include "app/EmergencyExit.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <malloc.h>

using namespace quellora;

class TestExitHandlers : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void registeringAgainTakesNoMemory()
    {
        EmergencyExit exit([] {});
        const std::size_t before = mallinfo2().uordblks;
        for (int i = 0; i < 1000; ++i)
            exit.registerExitHandlers();
        // 16 handlers of 32 bytes each time would be 500 KiB.
        QVERIFY(mallinfo2().uordblks < before + 4096);
    }
};

QUELLORA_TEST(QCoreApplication, TestExitHandlers)
#include "test_exit_handlers.moc"
