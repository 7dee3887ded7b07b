// Compares listing 10,000 stored threads of about 15 KB with 15,000 screenshots with stat calls
// alone, with parsing the same descriptions on two threads, and with a database of the same rows.
// Also measures what opening the History sidebar costs the main thread.

#include "BenchClock.h"
#include "base/Settings.h"
#include "history/SessionFile.h"
#include "history/StoredThreadLibrary.h"
#include "history/ThreadController.h"
#include "history/ThreadListing.h"
#include "sheets/history/HistoryModel.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
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

/// The same threads as files and as database rows.
struct StoredThreads
{
    StoredThreads()
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
            // One or two screenshots per thread, alternating.
            for (int shot = 0; shot <= i % 2; ++shot)
                file.screenshots.append({shot, now});
            write(file.id, file.encode(), insert);
            for (const auto &shot : std::as_const(file.screenshots))
                writeImage(file.id, shot.index);
        }
        sqlite3_finalize(insert);
        run("COMMIT");
    }
    ~StoredThreads() { sqlite3_close(database); }
    StoredThreads(const StoredThreads &) = delete;
    StoredThreads &operator=(const StoredThreads &) = delete;

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

    void writeImage(const QUuid &id, qint64 index) const
    {
        QFile image(*store.sessionsRoot() + QLatin1Char('/') + uuidText(id) + QLatin1Char('/') +
                    CaptureSessionStore::screenshotFileName(index));
        if (!image.open(QIODevice::WriteOnly) || image.write("JPEG") < 0)
            qFatal("An image could not be written");
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

void listSummaries(const StoredThreads &stored)
{
    QPromise<ThreadLibrary::Result<ThreadBatch>> promise;
    promise.start();
    ThreadListing::read(stored.store, promise);
    promise.finish();
    qsizetype threads = 0;
    for (const auto &batch : promise.future().results())
        threads += batch ? batch->threads.size() : 0;
    require(threads == threadCount);
}

void statFiles(const StoredThreads &stored)
{
    int files = 0;
    for (const auto &entry :
         std::filesystem::directory_iterator(stored.store.sessionsRoot()->toStdString()))
        files += std::filesystem::file_size(entry.path() / "session.json") > 0 ? 1 : 0;
    require(files == threadCount);
}

/// Lower bound for a list from an index, which would have to check whether each thread changed.
void readModificationTimes(const StoredThreads &stored)
{
    std::atomic_size_t next = 0;
    std::atomic_size_t found = 0;
    const auto begin = std::filesystem::file_time_type::min();
    const auto work = [&] {
        for (size_t i = next++; i < stored.paths.size(); i = next++) {
            const std::filesystem::path file(stored.paths[i]);
            found += std::filesystem::last_write_time(file) > begin &&
                             std::filesystem::last_write_time(file.parent_path()) > begin
                         ? 1
                         : 0;
        }
    };
    std::thread other(work);
    work();
    other.join();
    require(found == threadCount);
}

void parseWithTwoThreads(const StoredThreads &stored)
{
    std::atomic_size_t next = 0;
    std::atomic_size_t turns = 0;
    const auto work = [&] {
        simdjson::dom::parser parser;
        for (size_t i = next++; i < stored.paths.size(); i = next++) {
            simdjson::dom::element document;
            simdjson::dom::array array;
            if (parser.load(stored.paths[i]).get(document) == simdjson::SUCCESS &&
                document["turns"].get(array) == simdjson::SUCCESS)
                turns += array.size();
        }
    };
    std::thread other(work);
    work();
    other.join();
    require(turns == size_t{threadCount} * turnsPerThread);
}

void readDatabase(const StoredThreads &stored)
{
    sqlite3_stmt *select = nullptr;
    sqlite3_prepare_v2(stored.database,
                       "SELECT id, created, updated, title, preview, turns, notes FROM threads", -1,
                       &select, nullptr);
    int rows = 0;
    while (sqlite3_step(select) == SQLITE_ROW)
        rows += sqlite3_column_bytes(select, 4) > 0 ? 1 : 0;
    sqlite3_finalize(select);
    require(rows == threadCount);
}

/// Measures the duration of every event on the main thread.
class MeasuredApplication : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        QElapsedTimer timer;
        timer.start();
        const bool isDone = QCoreApplication::notify(receiver, event);
        count(timer.nsecsElapsed());
        return isDone;
    }
    void count(qint64 nanoseconds)
    {
        longestEvent = std::max(longestEvent, nanoseconds);
        totalTime += nanoseconds;
    }

    qint64 longestEvent = 0;
    qint64 totalTime = 0;
};

/// The sidebar's list, measured from the button to the last row.
struct Sidebar
{
    explicit Sidebar(const StoredThreads &stored)
        : saver(stored.store)
        , library(stored.store, saver)
        , threads(settings, nullptr)
        , history(library, threads, removals)
        , model(history, threads, Vocabulary::linuxDesktop())
    {}

    void open(MeasuredApplication &application, const char *name)
    {
        application.longestEvent = application.totalTime = 0;
        double firstRows = 0;
        QElapsedTimer time;
        time.start();
        history.historyButtonClicked();
        application.count(time.nsecsElapsed());
        while (history.isLoading()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            if (firstRows == 0 && history.threadsRead() > 0)
                firstRows = double(time.nsecsElapsed()) / 1e6;
        }
        const double allRows = double(time.nsecsElapsed()) / 1e6;
        require(model.rowCount() == threadCount);
        std::printf("  %-28s first rows read after %6.1f ms, all after %6.1f ms; main thread %6.1f "
                    "ms in all, %5.2f ms at most\n",
                    name, firstRows, allRows, double(application.totalTime) / 1e6,
                    double(application.longestEvent) / 1e6);
    }
    void close() { history.close(); }

    JsonUserDefaults defaults;
    Settings settings{defaults};
    BackgroundThreadSaver saver;
    StoredThreadLibrary library;
    ThreadController threads;
    PendingRemovals removals;
    HistoryController history;
    HistoryModel model;
};

/// Sets modification times unrelated to the threads' order, as after restoring a backup.
void shuffleTimes(const StoredThreads &stored)
{
    const auto now = std::filesystem::file_time_type::clock::now();
    for (size_t i = 0; i < stored.paths.size(); ++i)
        std::filesystem::last_write_time(stored.paths[i],
                                         now - std::chrono::seconds(i * 7919 % threadCount));
}

void openSidebar(const StoredThreads &stored, int argc, char **argv)
{
    MeasuredApplication application(argc, argv);
    std::printf("History sidebar, its model included (a frame is 16 ms)\n");
    {
        Sidebar sidebar(stored);
        sidebar.open(application, "first time");
        sidebar.close();
        sidebar.open(application, "again");
        sidebar.close();
        sidebar.model.setSearchText(QStringLiteral("x"));
        QElapsedTimer time;
        time.start();
        sidebar.model.setSearchText(QStringLiteral("show"));
        std::printf("  %-28s %6.2f ms\n", "one more letter of a search",
                    double(time.nsecsElapsed()) / 1e6);
    }
    shuffleTimes(stored);
    Sidebar(stored).open(application, "files' times in no order");
}

} // namespace

int main(int argc, char **argv)
{
    const StoredThreads stored;
    std::printf("%d threads of %lld bytes\n", threadCount, stored.bytes / threadCount);
    const double ours = fastestMilliseconds(runs, [&] { listSummaries(stored); });
    std::printf("  %-44s %8.1f ms\n", "list of summaries, 2 threads", ours);
    const auto compare = [ours](const char *name, double reference) {
        std::printf("  %-44s %8.1f ms   ratio %.2f\n", name, reference, ours / reference);
    };
    compare("folder and file sizes only", fastestMilliseconds(runs, [&] { statFiles(stored); }));
    compare("times of descriptions and folders, 2 threads",
            fastestMilliseconds(runs, [&] { readModificationTimes(stored); }));
    compare("simdjson alone, 2 threads",
            fastestMilliseconds(runs, [&] { parseWithTwoThreads(stored); }));
    compare("SQLite", fastestMilliseconds(runs, [&] { readDatabase(stored); }));
    openSidebar(stored, argc, argv);
    return 0;
}
