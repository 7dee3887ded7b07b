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
    void fieldLimits()
    {
        QVERIFY(PromptText::fitsField(QString()));
        QVERIFY(PromptText::fitsField(longText));
        QVERIFY(!PromptText::fitsField(longText + u'x'));
        const QString lines = QStringLiteral("\n").repeated(PromptText::maximumFieldLines - 1);
        QVERIFY(PromptText::fitsField(lines));
        QVERIFY(!PromptText::fitsField(lines + u'\n'));
    }

    void shortPastesFitField()
    {
        PromptText text;
        text.setFullText(QStringLiteral("abc"));
        QVERIFY(!text.pasteLongText(QStringLiteral("short"), 1, 2));
        QCOMPARE(text.typed(), QStringLiteral("abc"));
        QVERIFY(text.pasted().isEmpty());
        // Replaced text does not count towards the limit.
        text.setFullText(longText);
        QVERIFY(!text.pasteLongText(longText, 0, longText.size()));
    }

    void combinedLengthIsLimited()
    {
        PromptText text;
        text.setFullText(longText.left(longText.size() - 10));
        QVERIFY(text.pasteLongText(QStringLiteral("twelve chars"), text.typed().size(),
                                   text.typed().size()));
        QCOMPARE(text.pasted(), QStringLiteral("twelve chars"));
    }

    void orderIsPreserved()
    {
        PromptText text;
        text.setFullText(QStringLiteral("before|selected|after"));
        QVERIFY(text.pasteLongText(longText + u'1', 7, 15));
        QCOMPARE(text.typed(), QStringLiteral("before|"));
        QCOMPARE(text.fullText(),
                 QStringLiteral("before|\n") + longText + QStringLiteral("1|after"));
        // A second paste at the end is appended to the first.
        QVERIFY(text.pasteLongText(longText + u'2', 7, 7));
        QCOMPARE(text.fullText(), QStringLiteral("before|\n") + longText +
                                      QStringLiteral("1|after\n") + longText + u'2');
        // A paste before typed text is inserted before it.
        QVERIFY(text.pasteLongText(longText + u'3', 0, 0));
        QCOMPARE(text.fullText(), longText + QStringLiteral("3before|\n") + longText +
                                      QStringLiteral("1|after\n") + longText + u'2');
        text.setTyped(QStringLiteral("new"));
        QVERIFY(text.fullText().startsWith(QStringLiteral("new\nxxx")));
        text.removePasted();
        QCOMPARE(text.fullText(), QStringLiteral("new"));
    }

    void lineBreaksAreNormalised()
    {
        PromptText text;
        QVERIFY(text.pasteLongText(longText + QStringLiteral("a\r\nb\rc\nd"), 0, 0));
        QVERIFY(text.fullText().endsWith(QStringLiteral("a\nb\nc\nd")));
    }

    void setsFullText()
    {
        PromptText text;
        text.setFullText(longText + QStringLiteral(" more"));
        QVERIFY(text.typed().isEmpty());
        QCOMPARE(text.fullText(), longText + QStringLiteral(" more"));
        text.setFullText(QStringLiteral("short"));
        QCOMPARE(text.typed(), QStringLiteral("short"));
        QVERIFY(text.pasted().isEmpty());
    }
};

QUELLORA_TEST(QCoreApplication, TestPromptText)
#include "test_prompt_text.moc"
