#include "panels/PromptText.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using quellora::PromptText;

namespace {

const QString longText = QString(PromptText::maximumFieldLength, u'x');

} // namespace

class TestPromptText : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void bordersOfTheField()
    {
        QVERIFY(PromptText::fitsField(QString()));
        QVERIFY(PromptText::fitsField(longText));
        QVERIFY(!PromptText::fitsField(longText + u'x'));
        const QString lines = QStringLiteral("\n").repeated(PromptText::maximumFieldLines - 1);
        QVERIFY(PromptText::fitsField(lines));
        QVERIFY(!PromptText::fitsField(lines + u'\n'));
    }

    void shortPastesAreLeftToTheField()
    {
        PromptText text;
        text.setWhole(QStringLiteral("abc"));
        QVERIFY(!text.takePaste(QStringLiteral("short"), 1, 2));
        QCOMPARE(text.typed(), QStringLiteral("abc"));
        QVERIFY(text.pasted().isEmpty());
        // What is replaced does not count.
        text.setWhole(longText);
        QVERIFY(!text.takePaste(longText, 0, longText.size()));
    }

    void severalPastesTogetherAreTooLong()
    {
        PromptText text;
        text.setWhole(longText.left(longText.size() - 10));
        QVERIFY(text.takePaste(QStringLiteral("twelve chars"), text.typed().size(),
                               text.typed().size()));
        QCOMPARE(text.pasted(), QStringLiteral("twelve chars"));
    }

    void nothingIsLostAndTheOrderStays()
    {
        PromptText text;
        text.setWhole(QStringLiteral("before|selected|after"));
        QVERIFY(text.takePaste(longText + u'1', 7, 15));
        QCOMPARE(text.typed(), QStringLiteral("before|"));
        QCOMPARE(text.whole(), QStringLiteral("before|\n") + longText + QStringLiteral("1|after"));
        // One more at the end comes behind the first.
        QVERIFY(text.takePaste(longText + u'2', 7, 7));
        QCOMPARE(text.whole(), QStringLiteral("before|\n") + longText +
                                   QStringLiteral("1|after\n") + longText + u'2');
        // One in the middle of what is typed comes before it.
        QVERIFY(text.takePaste(longText + u'3', 0, 0));
        QCOMPARE(text.whole(), longText + QStringLiteral("3before|\n") + longText +
                                   QStringLiteral("1|after\n") + longText + u'2');
        text.setTyped(QStringLiteral("new"));
        QVERIFY(text.whole().startsWith(QStringLiteral("new\nxxx")));
        text.removePasted();
        QCOMPARE(text.whole(), QStringLiteral("new"));
    }

    void lineEndsBecomeThoseOfTheField()
    {
        PromptText text;
        QVERIFY(text.takePaste(longText + QStringLiteral("a\r\nb\rc\nd"), 0, 0));
        QVERIFY(text.whole().endsWith(QStringLiteral("a\nb\nc\nd")));
    }

    void aStoredPromptIsTakenOver()
    {
        PromptText text;
        text.setWhole(longText + QStringLiteral(" more"));
        QVERIFY(text.typed().isEmpty());
        QCOMPARE(text.whole(), longText + QStringLiteral(" more"));
        text.setWhole(QStringLiteral("short"));
        QCOMPARE(text.typed(), QStringLiteral("short"));
        QVERIFY(text.pasted().isEmpty());
    }
};

QUELLORA_TEST(QCoreApplication, TestPromptText)
#include "test_prompt_text.moc"
