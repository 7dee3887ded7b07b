#include "ExportFixture.h"
#include "export/ThreadDocument.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QRegularExpression>
#include <QTest>

using namespace quellora;

class TestThreadDocument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "UTC"); }

    void holdsTheThread()
    {
        CaptureSession thread = threadOf({QStringLiteral("one"), QStringLiteral("two")});
        const QString page = QString::fromUtf8(threaddocument::ofThread(
            thread, {{QStringLiteral("<p>first</p>"), QStringLiteral("<p>second</p>")}, false}));
        QStringList parts{QStringLiteral("<title>What is &lt;this&gt; &amp; *that*?</title>"),
                          QStringLiteral("A note\nwith &lt;b&gt;two&lt;/b&gt; lines"),
                          QStringLiteral("Mar 1, 2026, 12:01 PM"),
                          QStringLiteral("src=\"data:image/jpeg;base64,") +
                              QString::fromLatin1(thread.screenshots[0].imageData.toBase64()),
                          QStringLiteral("What is &lt;this&gt; &amp; *that*?</div>"),
                          QStringLiteral("<p>first</p>"),
                          QStringLiteral("Mar 1, 2026, 12:02 PM"),
                          QStringLiteral("<p>second</p>")};
        qsizetype from = 0;
        for (const QString &part : parts) {
            from = page.indexOf(part, from);
            QVERIFY2(from >= 0, qPrintable(part));
        }
        QVERIFY(!page.contains(QStringLiteral("KaTeX_")));
    }

    /// A turn whose text is that of another one has its own answer.
    void equalTurnsHaveTheirAnswers()
    {
        CaptureSession thread = threadOf({QStringLiteral("same"), QStringLiteral("same")});
        thread.turns[1].createdAt = thread.turns[0].createdAt;
        const QByteArray page = threaddocument::ofThread(
            thread, {{QStringLiteral("<p>A</p>"), QStringLiteral("<p>B</p>")}, false});
        QVERIFY(page.indexOf("<p>A</p>") > 0);
        QVERIFY(page.indexOf("<p>B</p>") > page.indexOf("<p>A</p>"));
    }

    void policyAllowsItsOwnRulesOnly()
    {
        for (const bool hasFormulas : {false, true}) {
            const QString page = QString::fromUtf8(threaddocument::ofThread(
                threadOf({QStringLiteral("x")}), {{QStringLiteral("<p>x</p>")}, hasFormulas}));
            const auto policy =
                QRegularExpression(QStringLiteral("Security-Policy\" content=\"([^\"]*)\""))
                    .match(page)
                    .captured(1);
            const auto css = QRegularExpression(QStringLiteral("<style>(.*)</style>"),
                                                QRegularExpression::DotMatchesEverythingOption)
                                 .match(page)
                                 .captured(1);
            const QString hash = QString::fromLatin1(
                QCryptographicHash::hash(css.toUtf8(), QCryptographicHash::Sha256).toBase64());
            QCOMPARE(policy,
                     QStringLiteral("default-src 'none'; style-src 'sha256-%1'%2; img-src "
                                    "data:; font-src data:; base-uri 'none'; form-action "
                                    "'none'")
                         .arg(hash, hasFormulas ? QStringLiteral("; style-src-attr 'unsafe-inline'")
                                                : QString()));
            // The policy comes before anything that it governs.
            QVERIFY(page.indexOf(QStringLiteral("Security-Policy")) < page.indexOf(css));
            QVERIFY(!page.contains(QStringLiteral("<script")));
            // Every address in the rules is data.
            static const QRegularExpression address(QStringLiteral("url\\((?!data:)"));
            QVERIFY(!css.contains(address));
            QVERIFY(!css.contains(QStringLiteral("@import")));
            QVERIFY(!css.contains(QLatin1Char('<')));
            QCOMPARE(css.contains(QStringLiteral("KaTeX_Main")), hasFormulas);
        }
    }

    void screenshotsOnly()
    {
        CaptureSession thread = CaptureSession::create(noon);
        thread.addScreenshot("\x89PNG", noon, noon);
        const QByteArray page = threaddocument::ofThread(thread, {});
        QVERIFY(page.contains("src=\"data:image/png;base64,"));
    }

    void piecesForPasting()
    {
        const QString html = threaddocument::forPasting(threadOf({QStringLiteral("x")}),
                                                        {QStringLiteral("<p>answer</p>")});
        QVERIFY(html.startsWith(QStringLiteral("<h1>What is &lt;this&gt; &amp; *that*?</h1>")));
        QVERIFY(html.contains(QStringLiteral("A note<br>with &lt;b&gt;two&lt;/b&gt; lines")));
        QVERIFY(html.contains(QStringLiteral("<p><b>Answer</b></p>\n<p>answer</p>")));
        QVERIFY(!html.contains(QStringLiteral("<img")));
        QVERIFY(!html.contains(QStringLiteral("class=")));
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadDocument)
#include "test_thread_document.moc"
