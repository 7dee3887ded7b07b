#include "export/ExportFormat.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

class TestExportFormat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesAndEndings()
    {
        for (const auto format : {ExportFormat::Markdown, ExportFormat::Html, ExportFormat::Pdf}) {
            const QString suffix = exportformat::suffix(format);
            QCOMPARE(exportformat::fromName(suffix.toUtf8()), format);
            QCOMPARE(exportformat::fromFileName(QStringLiteral("/a.b/x.") + suffix.toUpper()),
                     format);
            QVERIFY(!exportformat::title(format).isEmpty());
        }
        QCOMPARE(exportformat::fromFileName(QStringLiteral("a.markdown")), ExportFormat::Markdown);
        QCOMPARE(exportformat::fromFileName(QStringLiteral("a.htm")), ExportFormat::Html);
        for (const char *other : {"a.txt", "a", "", "pdf", "a.pdf.gz"})
            QVERIFY2(!exportformat::fromFileName(QString::fromLatin1(other)), other);
        for (const char *other : {"", "PDF", "markdown", "p"})
            QVERIFY2(!exportformat::fromName(other), other);
    }

    void fileNames_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("name");
        const auto row = [](const char *tag, const QString &title, const QString &name) {
            QTest::newRow(tag) << title << name;
        };
        row("plain", QStringLiteral("Why is it red?"), QStringLiteral("Why is it red.pdf"));
        row("separators", QStringLiteral("a/b\\c:d*e\"f<g>h|i"),
            QStringLiteral("a b c d e f g h i.pdf"));
        row("parent", QStringLiteral("../../etc/passwd"), QStringLiteral("etc passwd.pdf"));
        row("hidden", QStringLiteral(".profile"), QStringLiteral("profile.pdf"));
        row("option", QStringLiteral("--force"), QStringLiteral("force.pdf"));
        row("blanks", QStringLiteral(" \t\n "), QStringLiteral("Thread.pdf"));
        row("empty", QString(), QStringLiteral("Thread.pdf"));
        row("only refused", QStringLiteral("?*?/.."), QStringLiteral("Thread.pdf"));
        row("controls", QStringLiteral("a\u0007b\u202efdp.exe"), QStringLiteral("a b fdp.exe.pdf"));
        row("line breaks", QStringLiteral("one\ntwo"), QStringLiteral("one two.pdf"));
        row("long", QString(300, QLatin1Char('x')),
            QString(80, QLatin1Char('x')) + QStringLiteral(".pdf"));
        row("other scripts", QStringLiteral("Größe 大きさ"), QStringLiteral("Größe 大きさ.pdf"));
    }
    void fileNames()
    {
        QFETCH(QString, title);
        QTEST(exportformat::fileName(title, ExportFormat::Pdf), "name");
    }

    void longNamesOfOtherScriptsFit()
    {
        const QString name =
            exportformat::fileName(QString(300, QChar(0x5927)), ExportFormat::Html);
        QVERIFY(name.toUtf8().size() <= 205);
        QVERIFY(name.size() > 60);
        const QString emoji = QString::fromUtf8("\xf0\x9f\x98\x80").repeated(100);
        const QString pairs = exportformat::fileName(emoji, ExportFormat::Markdown).chopped(3);
        QVERIFY(pairs.toUtf8().size() <= 200);
        QVERIFY(emoji.startsWith(pairs));
        QVERIFY(!pairs.back().isHighSurrogate());
    }

    void paperFollowsTheTerritory()
    {
        const auto sizeFor = [](const char *name) {
            return exportformat::pageLayout(QLocale(QLatin1StringView(name))).pageSize().id();
        };
        for (const char *name : {"en_US", "en_CA", "es_MX", "en_PH", "es_CL"})
            QCOMPARE(sizeFor(name), QPageSize::Letter);
        for (const char *name : {"en_GB", "de_DE", "ja_JP", "pt_BR", "hi_IN"})
            QCOMPARE(sizeFor(name), QPageSize::A4);
    }

    void paperFollowsTheEnvironment()
    {
        const auto restore = qScopeGuard([all = qgetenv("LC_ALL"), paper = qgetenv("LC_PAPER")] {
            qputenv("LC_ALL", all);
            qputenv("LC_PAPER", paper);
        });
        qunsetenv("LC_ALL");
        qputenv("LC_PAPER", "de_DE.UTF-8");
        QCOMPARE(exportformat::paperLocale().territory(), QLocale::Germany);
        qputenv("LC_ALL", "en_US.UTF-8");
        QCOMPARE(exportformat::paperLocale().territory(), QLocale::UnitedStates);
        qputenv("LC_ALL", "C");
        QCOMPARE(exportformat::paperLocale().territory(), QLocale::Germany);
    }
};

QUELLORA_TEST(QCoreApplication, TestExportFormat)
#include "test_export_format.moc"
