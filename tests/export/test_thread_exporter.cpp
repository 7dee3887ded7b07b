#include "ExportFixture.h"
#include "export/ThreadExporter.h"
#include "page/EngineWindow.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QImage>
#include <QRegularExpression>
#include <QWebEnginePage>
#include <QWebEngineProfile>

using namespace quellora;

namespace {

QByteArray jpeg()
{
    QImage image(640, 400, QImage::Format_RGB32);
    image.fill(QColor(40, 110, 190));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "JPEG");
    return bytes;
}

/// The texts that the fonts of a PDF file can show: each has a table of its characters.
QByteArray inflated(const QByteArray &pdf)
{
    QByteArray all;
    qsizetype from = 0;
    for (;;) {
        const qsizetype start = pdf.indexOf("stream\n", from);
        if (start < 0)
            return all;
        const qsizetype begin = start + 7;
        const qsizetype end = pdf.indexOf("endstream", begin);
        QByteArray data = pdf.mid(begin, end - begin);
        // qUncompress() wants the length in front.
        data.prepend(QByteArray::fromHex("00400000"));
        all += qUncompress(data);
        from = end + 9;
    }
}

} // namespace

/// Whole exports to real files.
class TestThreadExporter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_thread = threadOf({QStringLiteral("It is $x^2$:\n\n```cpp\nint x = 1;\n```\n"),
                             QStringLiteral("Second answer with a ") +
                                 QString(400, QLatin1Char('w')) + QStringLiteral("\n\n```\n") +
                                 QString(400, QLatin1Char('m')) + QStringLiteral("\n```")});
        m_thread.screenshots[0].imageData = jpeg();
    }

    void markdown()
    {
        QVERIFY(done(ExportFormat::Markdown));
        const QString text = QString::fromUtf8(contentOf(path(ExportFormat::Markdown)));
        QVERIFY(text.contains(QStringLiteral("![Screenshot 1](thread-pictures/screenshot-1.jpg)")));
        QVERIFY(text.contains(QStringLiteral("It is $x^2$:\n\n```cpp\nint x = 1;\n```\n")));
        QCOMPARE(contentOf(m_dir->filePath(QStringLiteral("thread-pictures/screenshot-1.jpg"))),
                 m_thread.screenshots[0].imageData);
    }

    void picturesThatTheTextDoesNotShowStayBehind()
    {
        m_thread.screenshots[0].capturedAt = noon.addDays(1);
        QVERIFY(done(ExportFormat::Markdown));
        QCOMPARE(namesIn(m_dir->path()), QStringList{QStringLiteral("thread.md")});
    }

    /// The file, opened as any browser opens it, shows everything with its own fonts.
    void webPage()
    {
        QVERIFY(done(ExportFormat::Html));
        QWebEngineProfile profile;
        QWebEnginePage page(&profile);
        QSignalSpy loaded(&page, &QWebEnginePage::loadFinished);
        page.load(QUrl::fromLocalFile(path(ExportFormat::Html)));
        QVERIFY(runUntil([&] { return !loaded.isEmpty(); }));
        const auto value = [&page](const QString &script) {
            std::optional<QVariant> result;
            page.runJavaScript(script, [&](const QVariant &v) { result = v; });
            runUntil([&] { return result.has_value(); });
            return result.value_or(QVariant());
        };
        QCOMPARE(value(QStringLiteral("document.images[0].naturalWidth")).toInt(), 640);
        QCOMPARE(value(QStringLiteral("document.images.length")).toInt(), 1);
        QCOMPARE(value(QStringLiteral("document.querySelectorAll('.hljs-type').length")).toInt(),
                 1);
        value(QStringLiteral("document.body.offsetHeight; document.fonts.ready.then(() => "
                             "{ document.title = [...document.fonts].filter(f => f.status === "
                             "'loaded').map(f => f.family).join(); })"));
        QVERIFY(runUntil([&] { return page.title().contains(QStringLiteral("KaTeX_Math")); }));
        QVERIFY(page.title().contains(QStringLiteral("Inter")));
        QVERIFY(page.title().contains(QStringLiteral("JetBrains Mono")));
        // The formula's sizes and the rules are in force.
        QVERIFY(
            value(QStringLiteral("getComputedStyle(document.querySelector('.katex')).fontFamily"))
                .toString()
                .startsWith(QStringLiteral("KaTeX_Main")));
        QVERIFY(
            value(QStringLiteral("document.querySelector('.katex-strut').offsetHeight")).toInt() >
            5);
    }

    void pdf()
    {
        QVERIFY(done(ExportFormat::Pdf));
        const QByteArray pdf = contentOf(path(ExportFormat::Pdf));
        QVERIFY(pdf.startsWith("%PDF-1."));
        const auto box =
            QRegularExpression(QStringLiteral("/MediaBox \\[0 0 ([\\d.]+) ([\\d.]+)\\]"))
                .match(QString::fromLatin1(pdf));
        QCOMPARE(qRound(box.captured(1).toDouble() / 5), 119);
        QCOMPARE(qRound(box.captured(2).toDouble() / 5), 168);
        // Text, with tables that make it selectable, and the bundled fonts.
        QVERIFY(inflated(pdf).contains("beginbfchar"));
        QVERIFY(pdf.contains("Inter"));
        QVERIFY(pdf.contains("KaTeX"));
        QVERIFY(pdf.contains("/DCTDecode"));
    }

    void pdfOnLetterPaper()
    {
        m_exporter = std::make_unique<ThreadExporter>(
            std::make_shared<DiskThreadFiles>(),
            exportformat::pageLayout(QLocale(QStringLiteral("en_US"))));
        QVERIFY(done(ExportFormat::Pdf));
        QVERIFY(contentOf(path(ExportFormat::Pdf)).contains("/MediaBox [0 0 612 792]"));
    }

    void keepsWhatIsThere_data()
    {
        QTest::addColumn<ExportFormat>("format");
        QTest::newRow("md") << ExportFormat::Markdown;
        QTest::newRow("html") << ExportFormat::Html;
        QTest::newRow("pdf") << ExportFormat::Pdf;
    }
    void keepsWhatIsThere()
    {
        QFETCH(ExportFormat, format);
        writeFile(path(format), "mine");
        const auto kept = await(m_exporter->exportThread(m_thread, format, path(format),
                                                         ThreadExporter::Existing::Keep));
        QVERIFY(!kept);
        QCOMPARE(kept.error().kind, ExportFailure::Kind::Exists);
        QCOMPARE(contentOf(path(format)), QByteArray("mine"));
        QCOMPARE(namesIn(m_dir->path()).size(), 1);
        QVERIFY(await(m_exporter->exportThread(m_thread, format, path(format),
                                               ThreadExporter::Existing::Replace)));
        QVERIFY(contentOf(path(format)) != "mine");
    }

    void folderGone()
    {
        const QString gone = m_dir->filePath(QStringLiteral("gone/x.pdf"));
        const auto result = await(m_exporter->exportThread(m_thread, ExportFormat::Pdf, gone,
                                                           ThreadExporter::Existing::Keep));
        QVERIFY(!result);
        QCOMPARE(result.error().kind, ExportFailure::Kind::Write);
    }

    void clipboardTexts()
    {
        const auto answer = await(m_exporter->richTextOf(QStringLiteral("a **b**")));
        QVERIFY(answer);
        QCOMPARE(answer->html.trimmed(), QStringLiteral("<p>a <strong>b</strong></p>"));
        QCOMPARE(answer->plain, QStringLiteral("a **b**"));
        const auto thread = await(m_exporter->richTextOf(m_thread));
        QVERIFY(thread);
        QVERIFY(thread->html.contains(QStringLiteral("Second answer")));
        QCOMPARE(thread->plain, ThreadExporter::markdownOf(m_thread));
        QVERIFY(!thread->plain.contains(QStringLiteral("![")));
    }

    void endsWhileItWorks()
    {
        const auto result = m_exporter->exportThread(
            m_thread, ExportFormat::Pdf, path(ExportFormat::Pdf), ThreadExporter::Existing::Keep);
        m_exporter = std::make_unique<ThreadExporter>();
        QVERIFY(runUntil([&] { return result.isFinished(); }));
        QVERIFY(result.isCanceled());
    }

private:
    QString path(ExportFormat format) const
    {
        return m_dir->filePath(QStringLiteral("thread.") + exportformat::suffix(format));
    }
    template <typename T>
    static T await(QFuture<T> future)
    {
        return runUntil([&] { return future.isFinished(); }) ? future.result()
                                                             : T(tl::unexpected(ExportFailure{}));
    }
    bool done(ExportFormat format)
    {
        const auto result = await(m_exporter->exportThread(m_thread, format, path(format),
                                                           ThreadExporter::Existing::Keep));
        if (!result)
            qWarning("%s", qPrintable(result.error().text));
        return result.has_value();
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    CaptureSession m_thread;
    std::unique_ptr<ThreadExporter> m_exporter = std::make_unique<ThreadExporter>(
        std::make_shared<DiskThreadFiles>(),
        exportformat::pageLayout(QLocale(QStringLiteral("de_DE"))));
};

QUELLORA_TEST_MAIN(runEngineTest<TestThreadExporter>)
#include "test_thread_exporter.moc"
