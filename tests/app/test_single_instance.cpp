#include "app/SingleInstance.h"
#include "fakes/LogCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

using namespace quellora;
using namespace std::chrono_literals;

namespace {

/// A second start on a thread of its own: it waits without an event loop, as the real one does.
bool activateFrom(const QString &folder, const QString &session,
                  std::chrono::milliseconds patience = 30s)
{
    bool done = false;
    bool answered = false;
    QThreadPool::globalInstance()->start([&] {
        answered = SingleInstance(folder, session).activateFirst(patience);
        QMetaObject::invokeMethod(
            qApp, [&done] { done = true; }, Qt::QueuedConnection);
    });
    [&done] { QTRY_VERIFY_WITH_TIMEOUT(done, 40'000); }();
    QThreadPool::globalInstance()->waitForDone();
    return answered;
}

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void secondStartFindsTheFirst()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::First);
        int activations = 0;
        first.listen([&activations] { ++activations; });
        SingleInstance second(folder.path(), ":1");
        QCOMPARE(second.claim(), SingleInstance::Claim::Taken);
        QVERIFY(activateFrom(folder.path(), ":1"));
        QCOMPARE(activations, 1);
        QVERIFY(activateFrom(folder.path(), ":1"));
        QCOMPARE(activations, 2);
    }

    void socketIsTheUsersAlone()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        first.listen([] {});
        const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther |
                            QFile::WriteOther | QFile::ExeGroup | QFile::ExeOther;
        QVERIFY(QFileInfo::exists(first.socketPath()));
        QCOMPARE(QFileInfo(first.socketPath()).permissions() & others, QFile::Permissions());
    }

    void anotherDisplayOrUserIsAnotherSession()
    {
        QTemporaryDir folder;
        QTemporaryDir other;
        SingleInstance first(folder.path(), ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::First);
        QCOMPARE(SingleInstance(folder.path(), ":2").claim(), SingleInstance::Claim::First);
        QCOMPARE(SingleInstance(other.path(), ":1").claim(), SingleInstance::Claim::First);
    }

    void endOfTheFirstFreesTheSession()
    {
        QTemporaryDir folder;
        {
            SingleInstance first(folder.path(), ":1");
            first.claim();
            first.listen([] {});
        }
        QCOMPARE(
            QDir(folder.path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
            QStringList());
        SingleInstance next(folder.path(), ":1");
        QCOMPARE(next.claim(), SingleInstance::Claim::First);
    }

    void whatACrashLeftIsNoObstacle()
    {
        QTemporaryDir folder;
        SingleInstance next(folder.path(), ":1");
        {
            // A socket nobody listens on, and the lock of a process that no longer is.
            QLocalServer dead;
            QVERIFY(dead.listen(next.socketPath()));
            QVERIFY(QFile::rename(next.socketPath(), next.socketPath() + ".aside"));
        }
        QVERIFY(QFile::rename(next.socketPath() + ".aside", next.socketPath()));
        QString lock = next.socketPath();
        QFile file(lock.replace(".socket", ".lock"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("4194303\nquellora\n" + QSysInfo::machineHostName().toUtf8() + "\n" +
                   QSysInfo::machineUniqueId() + "\n" + QSysInfo::bootUniqueId() + "\n");
        file.close();
        QCOMPARE(next.claim(), SingleInstance::Claim::First);
        int activations = 0;
        next.listen([&activations] { ++activations; });
        QVERIFY(activateFrom(folder.path(), ":1"));
        QCOMPARE(activations, 1);
    }

    void onlyTheOneWordIsUnderstood_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("another word") << QByteArray("quit\n");
        QTest::newRow("more after it") << QByteArray("activate\nactivate\n");
        QTest::newRow("longer word") << QByteArray("activateX\n");
        QTest::newRow("capitals") << QByteArray("ACTIVATE\n");
        QTest::newRow("zero bytes") << QByteArray(9, '\0');
        QTest::newRow("a flood") << QByteArray(1 << 20, 'a');
        QTest::newRow("a path") << QByteArray("activate /etc/passwd\n");
    }
    void onlyTheOneWordIsUnderstood()
    {
        QFETCH(QByteArray, sent);
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        int activations = 0;
        first.listen([&activations] { ++activations; });
        LogCapture log;
        QLocalSocket socket;
        socket.connectToServer(first.socketPath());
        QVERIFY(socket.waitForConnected());
        socket.write(sent);
        QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
        QCOMPARE(activations, 0);
        QCOMPARE(socket.readAll(), QByteArray());
        QVERIFY(log.lines.isEmpty());
        // It still listens.
        QVERIFY(activateFrom(folder.path(), ":1"));
        QCOMPARE(activations, 1);
    }

    void wordMayComeInPieces()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        int activations = 0;
        first.listen([&activations] { ++activations; });
        QLocalSocket socket;
        socket.connectToServer(first.socketPath());
        QVERIFY(socket.waitForConnected());
        for (const char byte : QByteArray("activate\n")) {
            QCOMPARE(activations, 0);
            socket.write(&byte, 1);
            socket.flush();
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(activations, 1);
        QTRY_COMPARE(socket.bytesAvailable(), 3);
        QCOMPARE(socket.readAll(), QByteArray("ok\n"));
    }

    void silentConnectionsDoNotPileUp()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1", 300ms);
        first.claim();
        first.listen([] {});
        std::vector<std::unique_ptr<QLocalSocket>> silent;
        for (int i = 0; i < SingleInstance::maxConnections + 3; ++i) {
            silent.push_back(std::make_unique<QLocalSocket>());
            silent.back()->connectToServer(first.socketPath());
            QVERIFY(silent.back()->waitForConnected());
        }
        const auto refused = [&silent] {
            return std::count_if(silent.begin(), silent.end(), [](const auto &socket) {
                return socket->state() == QLocalSocket::UnconnectedState;
            });
        };
        QTRY_COMPARE(refused(), 3);
        // Those that were let in have their time, and then their place is free.
        QTRY_COMPARE_WITH_TIMEOUT(refused(), qsizetype(silent.size()), 10'000);
        QVERIFY(activateFrom(folder.path(), ":1"));
    }

    void hungFirstIsNotWaitedForLong()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        // Somebody listens there and never answers.
        QLocalServer hung;
        QVERIFY(hung.listen(first.socketPath()));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!SingleInstance(folder.path(), ":1").activateFirst(200ms));
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    }

    void nobodyListeningIsNotWaitedForLong()
    {
        QTemporaryDir folder;
        QVERIFY(!SingleInstance(folder.path(), ":1").activateFirst(100ms));
    }

    void unusableFolderDoesNotPreventTheStart()
    {
        QTemporaryDir folder;
        LogCapture log;
        SingleInstance alone(folder.filePath("missing"), ":1");
        QCOMPARE(alone.claim(), SingleInstance::Claim::First);
        QCOMPARE(log.lines, QStringList{"[SingleInstance] WARNING: No lock can be made; a second "
                                        "start will not be noticed"});
        alone.listen([] {});
        QCOMPARE(log.lines.size(), 1);
    }

    void pathTooLongForASocketIsSaid()
    {
        QTemporaryDir folder;
        const QString deep = folder.filePath(QString(120, 'x'));
        QVERIFY(QDir().mkpath(deep));
        LogCapture log;
        SingleInstance first(deep, ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::First);
        first.listen([] {});
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith(
            "[SingleInstance] WARNING: Not listening for further starts: "));
    }
};

QUELLORA_TEST(QCoreApplication, TestSingleInstance)
#include "test_single_instance.moc"
