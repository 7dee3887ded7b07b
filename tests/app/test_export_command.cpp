#include "app/ExportCommand.h"
#include "history/StoreFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

/// `quellora export` without its process; what needs the page engine is tested end to end.
class TestExportCommand : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "UTC"); }
    void init()
    {
        m_store = std::make_unique<StoreFixture>();
        m_thread = keptSample();
        m_thread.updatedAt = t0.addDays(1);
        QVERIFY(m_store->store.save(m_thread));
        m_request = {false, m_thread.id, ExportFormat::Markdown, path("x.md"), false};
    }

    void writesTheThread()
    {
        const auto outcome = run();
        QCOMPARE(outcome.error, QByteArray());
        QCOMPARE(outcome.output, QByteArray());
        QCOMPARE(outcome.status, 0);
        QVERIFY(contentOf(path("x.md")).startsWith("# p\n"));
        QVERIFY(QFileInfo::exists(path("x-pictures/screenshot-2.jpg")));
    }

    void latestIsTheLastUpdated()
    {
        CaptureSession older = keptSample();
        older.turns[0].prompt = QStringLiteral("older");
        older.updatedAt = t0;
        QVERIFY(m_store->store.save(older));
        m_request.thread.reset();
        QCOMPARE(run().status, 0);
        QVERIFY(contentOf(path("x.md")).startsWith("# p\n"));
    }

    void listsTheThreads()
    {
        CaptureSession other = keptSample();
        other.customTitle = QStringLiteral("Evil\u001b[31m\ttitle\nhere");
        other.updatedAt = t0.addDays(2);
        QVERIFY(m_store->store.save(other));
        m_request = {};
        m_request.listsThreads = true;
        const auto outcome = run();
        QCOMPARE(outcome.output, uuidText(other.id).toLatin1() +
                                     "\t2026-03-03 14:05\tEvil [31m title here\n" +
                                     uuidText(m_thread.id).toLatin1() + "\t2026-03-02 14:05\tp\n");
        QCOMPARE(outcome.status, 0);
    }

    void emptyStore()
    {
        QVERIFY(m_store->store.remove(m_thread.id));
        m_request.thread.reset();
        QCOMPARE(run().status, CommandLine::noSuchThread);
        QCOMPARE(run().error, QByteArray("quellora: no thread is stored\n"));
        m_request = {};
        m_request.listsThreads = true;
        QCOMPARE(run().status, 0);
        QCOMPARE(run().output, QByteArray());
    }

    void unknownThread()
    {
        m_request.thread = QUuid::createUuid();
        QCOMPARE(run().status, CommandLine::noSuchThread);
        QVERIFY(!QFileInfo::exists(path("x.md")));
    }

    void unreadableThread()
    {
        writeFile(m_store->description(m_thread.id), "{");
        const auto outcome = run();
        QCOMPARE(outcome.status, 1);
        QVERIFY(outcome.error.startsWith("quellora: the thread can't be read: "));
        QCOMPARE(outcome.error.count('\n'), 1);
    }

    void existingFile()
    {
        writeFile(path("x.md"), "mine");
        const auto outcome = run();
        QCOMPARE(outcome.status, CommandLine::fileExists);
        QCOMPARE(outcome.error,
                 QByteArray("quellora: \"x.md\" is there already; --force replaces it\n"));
        QCOMPARE(contentOf(path("x.md")), QByteArray("mine"));
        m_request.replacesFile = true;
        QCOMPARE(run().status, 0);
        QVERIFY(contentOf(path("x.md")) != "mine");
    }

    void unwritableFile()
    {
        m_request.path = path("none/x.md");
        QCOMPARE(run().status, CommandLine::fileNotWritten);
    }

private:
    QString path(const char *name) const
    {
        return m_store->support.filePath(QLatin1StringView(name));
    }
    ExportCommand::Outcome run()
    {
        ThreadExporter exporter;
        return ExportCommand(m_store->store, exporter).run(m_request);
    }

    std::unique_ptr<StoreFixture> m_store;
    CaptureSession m_thread;
    ExportRequest m_request;
};

QUELLORA_TEST(QCoreApplication, TestExportCommand)
#include "test_export_command.moc"
