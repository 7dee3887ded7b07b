#include "platform/contract/Mistakes.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

using namespace quellora;

/// Injects one mistake at a time into the fakes; the test assigned to it must fail.
class TestContractMistakes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void isDetected_data()
    {
        QTest::addColumn<QString>("test");
        const QMap<QString, QString> mistakes = injectableMistakes();
        for (auto it = mistakes.begin(); it != mistakes.end(); ++it)
            QTest::newRow(qPrintable(it.key())) << it.value();
    }
    void isDetected()
    {
        QFETCH(QString, test);
        const QStringList parts = test.split(QStringLiteral("::"));
        const auto failed = [&parts](const QStringList &mistake) {
            QProcess suite;
            suite.start(QStringLiteral(QUELLORA_CONTRACT_FAKE), QStringList(parts) + mistake);
            if (!suite.waitForFinished())
                return QStringLiteral("timeout");
            const QString output = QString::fromLocal8Bit(suite.readAllStandardOutput());
            const QString failure =
                QStringLiteral("FAIL!  : quellora::%1::%2(").arg(parts[0], parts[1]);
            if (output.contains(failure) != (suite.exitCode() != 0))
                return output;
            return suite.exitCode() != 0 ? QStringLiteral("yes") : QStringLiteral("no");
        };
        QCOMPARE(
            failed({QStringLiteral("--mistake"), QString::fromLatin1(QTest::currentDataTag())}),
            QStringLiteral("yes"));
    }
};

QUELLORA_TEST(QCoreApplication, TestContractMistakes)
#include "test_contract_mistakes.moc"
