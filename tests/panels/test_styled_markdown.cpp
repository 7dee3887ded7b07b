#include "panels/StyledMarkdown.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QTest>

using quellora::StyledMarkdown;

class TestStyledMarkdown : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void paragraphsAndEmphasis()
    {
        const auto styled = StyledMarkdown::fromMarkdown(
            QStringLiteral("You have used **all**.\n\nPlease upgrade.\n\n*Then sign in again.*"));
        QCOMPARE(styled.plainText,
                 QStringLiteral("You have used all.\nPlease upgrade.\nThen sign in again."));
        QCOMPARE(styled.richText.count(QStringLiteral("<p ")), 3);
        QVERIFY(styled.richText.contains(QStringLiteral(">all</span>")));
        QVERIFY(styled.richText.contains(QStringLiteral(">Then sign in again.</i>")));
    }

    void listsKeepMarkers()
    {
        const auto styled =
            StyledMarkdown::fromMarkdown(QStringLiteral("- one\n- two\n\n1. first\n2. second\n"));
        QCOMPARE(styled.plainText, QStringLiteral("\u2022 one\n\u2022 two\n1. first\n2. second"));
    }

    void webLinksStayLinks()
    {
        const auto styled = StyledMarkdown::fromMarkdown(QStringLiteral(
            "[Help](https://example.com/a?b=1&c=2) and [plain](http://example.com)"));
        QVERIFY(styled.richText.contains(
            QStringLiteral("<a href=\"https://example.com/a?b=1&amp;c=2\"")));
        QVERIFY(styled.richText.contains(QStringLiteral("<a href=\"http://example.com\"")));
        QCOMPARE(styled.plainText, QStringLiteral("Help and plain"));
    }

    void activeContentBecomesText_data()
    {
        QTest::addColumn<QString>("markdown");
        QTest::newRow("script link") << QStringLiteral("[x](javascript:alert(1))");
        QTest::newRow("file link") << QStringLiteral("[x](file:///etc/passwd)");
        QTest::newRow("data link") << QStringLiteral("[x](data:text/html,hello)");
        QTest::newRow("relative link") << QStringLiteral("[x](/account)");
        QTest::newRow("link without host") << QStringLiteral("[x](https:)");
        QTest::newRow("remote image") << QStringLiteral("![x](https://example.com/x.png)");
        QTest::newRow("local image") << QStringLiteral("![x](qrc:/x.png)");
        QTest::newRow("html image") << QStringLiteral("<img src=\"https://example.com/x.png\"> x");
        QTest::newRow("html block") << QStringLiteral("<div>\n<img src='a'> x\n</div>");
        QTest::newRow("html link") << QStringLiteral("<a href=\"file:///x\">x</a>");
        QTest::newRow("style") << QStringLiteral("x <style>body{}</style>");
        QTest::newRow("quotes in a title")
            << QStringLiteral("![x\"><img src=y>](https://example.com/x.png)");
        QTest::newRow("code") << QStringLiteral("`<img src=x>`");
        QTest::newRow("fence") << QStringLiteral("```\n<img src=x>\n```");
        QTest::newRow("object replacement") << QStringLiteral("x \uFFFC");
    }
    void activeContentBecomesText()
    {
        QFETCH(QString, markdown);
        const auto styled = StyledMarkdown::fromMarkdown(markdown);
        QVERIFY(!styled.richText.contains(QStringLiteral("<img")));
        QVERIFY(!styled.richText.contains(QStringLiteral("<a ")));
        QVERIFY(!styled.richText.contains(QStringLiteral("<style")));
        QVERIFY(!styled.richText.contains(QStringLiteral("<div")));
        QVERIFY(!styled.richText.contains(QChar::ObjectReplacementCharacter));
        QVERIFY(styled.plainText.contains(QLatin1Char('x')));
    }

    void imagesBecomeDescriptions()
    {
        const auto styled = StyledMarkdown::fromMarkdown(
            QStringLiteral("See ![a chart](https://e.com/x.png) here"));
        QCOMPARE(styled.plainText, QStringLiteral("See [a chart] here"));
    }

    void longBodiesAreTruncated()
    {
        const QString body(StyledMarkdown::maximumLength * 3, QLatin1Char('a'));
        const auto styled = StyledMarkdown::fromMarkdown(body);
        QCOMPARE(styled.plainText.size(), StyledMarkdown::maximumLength + 1);
        QVERIFY(styled.plainText.endsWith(QChar(0x2026)));
    }

    void emptyBody()
    {
        QCOMPARE(StyledMarkdown::fromMarkdown(QString()), StyledMarkdown());
        QCOMPARE(StyledMarkdown::fromMarkdown(QStringLiteral("  \n\n ")), StyledMarkdown());
    }
};

QUELLORA_TEST(QGuiApplication, TestStyledMarkdown)
#include "test_styled_markdown.moc"
