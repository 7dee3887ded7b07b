#include "platform/contract/Mistakes.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

using namespace quellora;

/// Plants one mistake after the other in the fakes: the contract must notice each, in the test that
/// is there for it.
class TestContractMistakes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void isNoticed_data()
    {
        QTest::addColumn<QString>("test");
        const QMap<QString, QString> mistakes = plantedMistakes();
        for (auto it = mistakes.begin(); it != mistakes.end(); ++it)
            QTest::newRow(qPrintable(it.key())) << it.value();
    }
    void isNoticed()
    {
        QFETCH(QString, test);
        const QStringList parts = test.split(QStringLiteral("::"));
        const auto failed = [&parts](const QStringList &mistake) {
            QProcess suite;
            suite.start(QStringLiteral(QUELLORA_CONTRACT_FAKE), QStringList(parts) + mistake);
            if (!suite.waitForFinished())
                return QStringLiteral("it does not end");
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
