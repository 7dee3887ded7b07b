#include "base/Settings.h"
#include "overlay/AnswerTextSize.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

class AnswerTextSizeTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void goesInStepsBetweenItsBounds()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        AnswerTextSize size(settings);
        QSignalSpy changed(&size, &AnswerTextSize::changed);
        QCOMPARE(size.factor(), 1.0);
        QList<int> seen;
        for (int i = 0; i < 7; ++i) {
            size.change(1);
            seen << size.percent();
        }
        QCOMPARE(seen, (QList<int>{110, 125, 150, 175, 200, 200, 200}));
        QCOMPARE(changed.size(), 5);
        QCOMPARE(settings.answerTextSize(), "200");
        seen.clear();
        for (int i = 0; i < 11; ++i) {
            size.change(-1);
            seen << size.percent();
        }
        QCOMPARE(seen, (QList<int>{175, 150, 125, 110, 100, 90, 80, 67, 50, 50, 50}));
        QCOMPARE(size.factor(), 0.5);
        size.change(0);
        QCOMPARE(size.percent(), 100);
        QCOMPARE(settings.answerTextSize(), "");
        // A later run has the same.
        size.change(1);
        QCOMPARE(AnswerTextSize(settings).percent(), 110);
    }

    void hostileStoredValues_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("percent");
        QTest::newRow("empty") << "" << 100;
        QTest::newRow("no number") << "large" << 100;
        QTest::newRow("fraction") << "1.5" << 100;
        QTest::newRow("too much for a number") << "99999999999999999999" << 100;
        QTest::newRow("zero") << "0" << 50;
        QTest::newRow("negative") << "-2147483648" << 50;
        QTest::newRow("huge") << "2147483647" << 200;
        QTest::newRow("between two steps") << "120" << 125;
        QTest::newRow("blanks") << " 110 " << 110;
    }
    void hostileStoredValues()
    {
        QFETCH(QString, stored);
        QFETCH(int, percent);
        JsonUserDefaults defaults;
        Settings settings(defaults);
        settings.setAnswerTextSize(stored);
        AnswerTextSize size(settings);
        QCOMPARE(size.percent(), percent);
        // Every size has a next one.
        size.change(percent < 200 ? 1 : -1);
        QVERIFY(size.percent() != percent);
    }
};

QUELLORA_TEST(QCoreApplication, AnswerTextSizeTest)
#include "test_answer_text_size.moc"
