#include "app/EmergencyExit.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

using namespace quellora;

namespace {

constexpr int ordinaryStatus = 7;

/// Adds a word to the notes of the process under test, at once.
void note(const char *word)
{
    QFile file(qEnvironmentVariable("EMERGENCY_NOTES"));
    if (file.open(QIODevice::Append))
        file.write(QByteArray(word) + '\n');
}

void startThread(const std::function<void()> &work)
{
    std::thread(work).detach();
}

/// The process under test: ends itself in the named way.
int endAs(const QString &way)
{
    auto guard = std::make_unique<EmergencyExit>(
        [main = std::this_thread::get_id()] {
            note(std::this_thread::get_id() == main ? "stored-on-main" : "stored-elsewhere");
        },
        way == QLatin1String("main-hangs") ? std::chrono::milliseconds(50)
                                           : std::chrono::milliseconds(60000));
    // As libraries do once they are used.
    std::atexit([] { note("library-gone"); });
    if (way == QLatin1String("ordinary")) {
        guard.reset();
        std::exit(ordinaryStatus);
    }
    if (way == QLatin1String("registered-before"))
        std::exit(ordinaryStatus);
    guard->comeFirst();
    if (way == QLatin1String("exit"))
        std::exit(ordinaryStatus);
    if (way == QLatin1String("exit-elsewhere"))
        startThread([] { std::exit(ordinaryStatus); });
    if (way == QLatin1String("leave-elsewhere"))
        startThread(&EmergencyExit::leave);
    if (way == QLatin1String("main-hangs")) {
        startThread(&EmergencyExit::leave);
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (way == QLatin1String("many")) {
        for (int i = 0; i < 8; ++i)
            startThread(i % 2 == 0 ? std::function<void()>(&EmergencyExit::leave)
                                   : [] { std::exit(ordinaryStatus); });
        QTimer::singleShot(0, qApp, [] { std::exit(ordinaryStatus); });
    }
    return QCoreApplication::exec();
}

} // namespace

/// Each case is a process of its own, which this program starts once more for it.
class TestEmergencyExit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void endsWithEverythingStored_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("notes");
        const QByteArray stored("stored-on-main\n");
        QTest::newRow("ordinary") << ordinaryStatus << QByteArray("library-gone\n");
        QTest::newRow("exit") << EXIT_FAILURE << stored;
        QTest::newRow("registered-before") << EXIT_FAILURE << "library-gone\n" + stored;
        QTest::newRow("exit-elsewhere") << EXIT_FAILURE << stored;
        QTest::newRow("leave-elsewhere") << EXIT_FAILURE << stored;
        QTest::newRow("main-hangs") << EXIT_FAILURE << QByteArray("stored-elsewhere\n");
        QTest::newRow("many") << EXIT_FAILURE << stored;
    }
    void endsWithEverythingStored()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, notes);
        const QTemporaryDir folder;
        QFile file(folder.filePath(QStringLiteral("notes")));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("EMERGENCY_NOTES"), file.fileName());
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("emergency_exit"), QStringLiteral("--end-as"),
                       QLatin1String(QTest::currentDataTag())});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), status);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), notes);
    }
};

namespace {

int runTests(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3 && arguments.at(1) == QLatin1String("--end-as"))
        return endAs(arguments.at(2));
    TestEmergencyExit test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_emergency_exit.moc"
