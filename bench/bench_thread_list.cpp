// The list of 10,000 stored threads of about 15 KB, against looking at the files only, against two
// threads that do nothing but parse the same descriptions, and against a database with the same
// rows.

#include "BenchClock.h"
#include "history/SessionFile.h"
#include "history/ThreadSummaryReader.h"

#include <QDir>
#include <QTemporaryDir>

#include <simdjson.h>
#include <sqlite3.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using namespace quellora;

namespace {

constexpr int threadCount = 10'000;
constexpr int turnsPerThread = 10;
constexpr int runs = 5;

/// The threads as files and as rows.
struct Shelf
{
    Shelf()
    {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        sqlite3_open(QFile::encodeName(folder.filePath(QStringLiteral("threads.db"))).constData(),
                     &database);
        run("PRAGMA journal_mode=OFF");
        run("CREATE TABLE threads(id TEXT, created TEXT, updated TEXT, title TEXT, preview TEXT, "
            "turns INTEGER, notes INTEGER, body TEXT)");
        run("BEGIN");
        sqlite3_stmt *insert = nullptr;
        sqlite3_prepare_v2(database,
                           "INSERT INTO threads VALUES(?1, '2026-03-01T14:05:09Z', "
                           "'2026-03-01T14:05:09Z', NULL, 'What does it show?', 10, 1, ?2)",
                           -1, &insert, nullptr);
        for (int i = 0; i < threadCount; ++i) {
            SessionFile file;
            file.id = QUuid::createUuid();
            file.createdAt = file.updatedAt = now.addSecs(i);
            file.notes.append({QUuid::createUuid(), QStringLiteral("note"), now});
            for (int turn = 0; turn < turnsPerThread; ++turn) {
                file.turns.append(
                    {QUuid::createUuid(), QStringLiteral("What does it show?"),
                     QStringLiteral("It shows a *curve* with \"points\".\n").repeated(37), now});
            }
            write(file.id, file.encode(), insert);
        }
        sqlite3_finalize(insert);
        run("COMMIT");
    }
    ~Shelf() { sqlite3_close(database); }
    Shelf(const Shelf &) = delete;
    Shelf &operator=(const Shelf &) = delete;

    void run(const char *statement) const
    {
        if (sqlite3_exec(database, statement, nullptr, nullptr, nullptr) != SQLITE_OK)
            qFatal("%s", sqlite3_errmsg(database));
    }

    void write(const QUuid &id, const QByteArray &json, sqlite3_stmt *insert)
    {
        const QString path = *store.sessionsRoot() + QLatin1Char('/') + uuidText(id);
        QFile file(path + QStringLiteral("/session.json"));
        if (!QDir().mkdir(path) || !file.open(QIODevice::WriteOnly) || file.write(json) < 0)
            qFatal("A thread could not be written");
        paths.push_back(file.fileName().toStdString());
        bytes += json.size();
        const QByteArray name = uuidText(id).toUtf8();
        sqlite3_bind_text(insert, 1, name.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 2, json.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }

    QTemporaryDir folder;
    CaptureSessionStore store{folder.path()};
    sqlite3 *database = nullptr;
    std::vector<std::string> paths;
    qint64 bytes = 0;
};

void require(bool isTrue)
{
    if (!isTrue)
        qFatal("A reader missed threads");
}

void readOurs(const Shelf &shelf)
{
    QPromise<ThreadLibrary::Result<ThreadBatch>> promise;
    promise.start();
    ThreadSummaryReader::readAll(shelf.store, promise);
    promise.finish();
    qsizetype threads = 0;
    for (const auto &batch : promise.future().results())
        threads += batch ? batch->threads.size() : 0;
    require(threads == threadCount);
}

void lookOnly(const Shelf &shelf)
{
    int files = 0;
    for (const auto &entry :
         std::filesystem::directory_iterator(shelf.store.sessionsRoot()->toStdString()))
        files += std::filesystem::file_size(entry.path() / "session.json") > 0 ? 1 : 0;
    require(files == threadCount);
}

void parseWithTwoThreads(const Shelf &shelf)
{
    std::atomic_size_t next = 0;
    std::atomic_size_t turns = 0;
    const auto work = [&] {
        simdjson::dom::parser parser;
        for (size_t i = next++; i < shelf.paths.size(); i = next++) {
            simdjson::dom::element document;
            simdjson::dom::array array;
            if (parser.load(shelf.paths[i]).get(document) == simdjson::SUCCESS &&
                document["turns"].get(array) == simdjson::SUCCESS)
                turns += array.size();
        }
    };
    std::thread other(work);
    work();
    other.join();
    require(turns == size_t{threadCount} * turnsPerThread);
}

void readDatabase(const Shelf &shelf)
{
    sqlite3_stmt *select = nullptr;
    sqlite3_prepare_v2(shelf.database,
                       "SELECT id, created, updated, title, preview, turns, notes FROM threads", -1,
                       &select, nullptr);
    int rows = 0;
    while (sqlite3_step(select) == SQLITE_ROW)
        rows += sqlite3_column_bytes(select, 4) > 0 ? 1 : 0;
    sqlite3_finalize(select);
    require(rows == threadCount);
}

} // namespace

int main()
{
    const Shelf shelf;
    std::printf("%d threads of %lld bytes\n", threadCount, shelf.bytes / threadCount);
    const double ours = fastestMilliseconds(runs, [&] { readOurs(shelf); });
    std::printf("  %-40s %8.1f ms\n", "list of summaries, one thread", ours);
    const auto compare = [ours](const char *name, double reference) {
        std::printf("  %-40s %8.1f ms   ratio %.2f\n", name, reference, ours / reference);
    };
    compare("folder and file sizes only", fastestMilliseconds(runs, [&] { lookOnly(shelf); }));
    compare("simdjson alone, two threads",
            fastestMilliseconds(runs, [&] { parseWithTwoThreads(shelf); }));
    compare("SQLite", fastestMilliseconds(runs, [&] { readDatabase(shelf); }));
    return 0;
}
