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

constexpr int ordinaryExitCode = 7;

/// Appends a line to the notes file of the child process.
void appendNote(const char *text)
{
    QFile file(qEnvironmentVariable("EMERGENCY_NOTES"));
    if (file.open(QIODevice::Append))
        file.write(QByteArray(text) + '\n');
}

void startThread(const std::function<void()> &work)
{
    std::thread(work).detach();
}

/// Main function of the child process: exits as the scenario says.
int runChild(const QString &scenario)
{
    auto guard = std::make_unique<EmergencyExit>(
        [main = std::this_thread::get_id()] {
            appendNote(std::this_thread::get_id() == main ? "saved-on-main"
                                                          : "saved-on-other-thread");
        },
        scenario == QLatin1String("main-thread-blocked") ? std::chrono::milliseconds(50)
                                                         : std::chrono::milliseconds(60000));
    // Stands for the exit handler of a library.
    std::atexit([] { appendNote("library-handler-ran"); });
    if (scenario == QLatin1String("ordinary")) {
        guard.reset();
        std::exit(ordinaryExitCode);
    }
    if (scenario == QLatin1String("handler-registered-later"))
        std::exit(ordinaryExitCode);
    guard->registerExitHandlers();
    if (scenario == QLatin1String("registered-often")) {
        for (int i = 0; i < 100; ++i) {
            if (i % 3 == 0)
                std::atexit([] { appendNote("library-handler-ran"); });
            guard->registerExitHandlers();
        }
        std::exit(ordinaryExitCode);
    }
    if (scenario == QLatin1String("ordinary-after-registered-often")) {
        for (int i = 0; i < 100; ++i)
            guard->registerExitHandlers();
        guard.reset();
        std::exit(ordinaryExitCode);
    }
    if (scenario == QLatin1String("exit"))
        std::exit(ordinaryExitCode);
    if (scenario == QLatin1String("exit-on-other-thread"))
        startThread([] { std::exit(ordinaryExitCode); });
    if (scenario == QLatin1String("exit-now-on-other-thread"))
        startThread(&EmergencyExit::exitNow);
    if (scenario == QLatin1String("main-thread-blocked")) {
        startThread(&EmergencyExit::exitNow);
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (scenario == QLatin1String("many-threads")) {
        for (int i = 0; i < 8; ++i)
            startThread(i % 2 == 0 ? std::function<void()>(&EmergencyExit::exitNow)
                                   : [] { std::exit(ordinaryExitCode); });
        QTimer::singleShot(0, QCoreApplication::instance(), [] { std::exit(ordinaryExitCode); });
    }
    return QCoreApplication::exec();
}

} // namespace

/// Each scenario runs in a child process, which is this program with --end-as.
class TestEmergencyExit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void savesDataBeforeExit_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("notes");
        const QByteArray saved("saved-on-main\n");
        QTest::newRow("ordinary") << ordinaryExitCode << QByteArray("library-handler-ran\n");
        QTest::newRow("ordinary-after-registered-often")
            << ordinaryExitCode << QByteArray("library-handler-ran\n");
        QTest::newRow("exit") << EXIT_FAILURE << saved;
        QTest::newRow("registered-often") << EXIT_FAILURE << saved;
        QTest::newRow("handler-registered-later")
            << EXIT_FAILURE << "library-handler-ran\n" + saved;
        QTest::newRow("exit-on-other-thread") << EXIT_FAILURE << saved;
        QTest::newRow("exit-now-on-other-thread") << EXIT_FAILURE << saved;
        QTest::newRow("main-thread-blocked")
            << EXIT_FAILURE << QByteArray("saved-on-other-thread\n");
        QTest::newRow("many-threads") << EXIT_FAILURE << saved;
    }
    void savesDataBeforeExit()
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
        return runChild(arguments.at(2));
    TestEmergencyExit test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_emergency_exit.moc"
