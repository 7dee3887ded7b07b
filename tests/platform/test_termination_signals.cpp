#include "platform/TerminationSignals.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <csignal>

using namespace quellora;

class TestTerminationSignals : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void signalCallsHandlerFromEventLoop_data()
    {
        QTest::addColumn<int>("number");
        QTest::newRow("terminate") << SIGTERM;
        QTest::newRow("interrupt") << SIGINT;
        QTest::newRow("hang-up") << SIGHUP;
    }
    void signalCallsHandlerFromEventLoop()
    {
        QFETCH(int, number);
        int calls = 0;
        TerminationSignals terminationSignals([&calls] { ++calls; });
        std::raise(number);
        QCOMPARE(calls, 0);
        QTRY_COMPARE(calls, 1);
    }

    void destructorRestoresDefaultAction()
    {
        {
            TerminationSignals terminationSignals([] {});
        }
        QVERIFY(std::signal(SIGTERM, SIG_DFL) == SIG_DFL);
    }
};

QUELLORA_TEST(QCoreApplication, TestTerminationSignals)
#include "test_termination_signals.moc"
