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

const RemoteCommand &show()
{
    return *findRemoteCommand("show");
}

QString accept(const RemoteCommand &, const QString &)
{
    return {};
}

/// Runs a second instance on its own thread, without an event loop like the real one. Returns
/// whether the first one has replied.
bool activateFromThread(const QString &folder, const QString &session,
                        std::chrono::milliseconds timeout = 30s)
{
    bool isDone = false;
    bool hasReplied = false;
    QThreadPool::globalInstance()->start([&] {
        hasReplied = SingleInstance(folder, session).send(show(), {}, timeout).hasArrived;
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [&isDone] { isDone = true; }, Qt::QueuedConnection);
    });
    [&isDone] { QTRY_VERIFY_WITH_TIMEOUT(isDone, 40'000); }();
    QThreadPool::globalInstance()->waitForDone();
    return hasReplied;
}

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void secondInstanceActivatesFirst()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::Acquired);
        int activations = 0;
        first.listen([&activations](const RemoteCommand &, const QString &) {
            ++activations;
            return QString();
        });
        SingleInstance second(folder.path(), ":1");
        QCOMPARE(second.claim(), SingleInstance::Claim::Taken);
        QVERIFY(activateFromThread(folder.path(), ":1"));
        QCOMPARE(activations, 1);
        QVERIFY(activateFromThread(folder.path(), ":1"));
        QCOMPARE(activations, 2);
    }

    void commandArrivesAndRefusalReturns()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        QStringList commands;
        first.listen([&commands](const RemoteCommand &command, const QString &operand) {
            commands.append(command.name);
            if (!operand.isEmpty())
                commands.last() += ' ' + operand;
            return command.kind == RemoteCommand::Kind::Quit ? QString()
                                                             : QString("not now — später");
        });
        for (const RemoteCommand &command : remoteCommands) {
            QLocalSocket socket;
            socket.connectToServer(first.socketPath());
            QVERIFY(socket.waitForConnected());
            const QByteArray line =
                QByteArray(command.name) + (command.takesOperand() ? " Für mich" : "");
            socket.write(line + '\n');
            QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
            QCOMPARE(commands.takeFirst(), QString::fromUtf8(line));
            QCOMPARE(QString::fromUtf8(socket.readAll()),
                     QString(command.kind == RemoteCommand::Kind::Quit
                                 ? "ok\n"
                                 : "refused: not now — später\n"));
        }
    }

    void operandsComeWithTheirCommandsOnly()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        QStringList operands;
        first.listen([&operands](const RemoteCommand &, const QString &operand) {
            operands.append(operand);
            return QString();
        });
        const QByteArray longest(RemoteCommand::maximumOperand, 'x');
        for (const QByteArray &line :
             {QByteArray("prompt"), QByteArray("prompt "), QByteArray("capture x"),
              QByteArray("capture "), "prompt " + longest + 'x', QByteArray("prompting x")}) {
            QLocalSocket socket;
            socket.connectToServer(first.socketPath());
            QVERIFY(socket.waitForConnected());
            socket.write(line + '\n');
            QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
            QCOMPARE(socket.readAll(), QByteArray());
        }
        QVERIFY(operands.isEmpty());
        QLocalSocket socket;
        socket.connectToServer(first.socketPath());
        QVERIFY(socket.waitForConnected());
        socket.write("prompt " + longest.left(100));
        QVERIFY(socket.waitForBytesWritten());
        QTest::qWait(0);
        socket.write(longest.mid(100) + '\n');
        QTRY_COMPARE(operands, QStringList(longest));
    }

    void listenerIsFoundWithoutLocking()
    {
        QTemporaryDir folder;
        const SingleInstance later(folder.path(), ":1");
        QVERIFY(!later.hasListener());
        SingleInstance first(folder.path(), ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::Acquired);
        QVERIFY(!later.hasListener());
        first.listen(&accept);
        QVERIFY(later.hasListener());
        // A crash leaves a socket on which nobody listens.
        QFile::rename(first.socketPath(), first.socketPath() + ".aside");
        QVERIFY(!later.hasListener());
    }

    void sendReturnsRefusal()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        first.listen(
            [](const RemoteCommand &, const QString &) { return QString("not now — später"); });
        bool isDone = false;
        SingleInstance::Reply reply;
        QThreadPool::globalInstance()->start([&] {
            reply = SingleInstance(folder.path(), ":1").send(show(), {}, 30s);
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [&isDone] { isDone = true; }, Qt::QueuedConnection);
        });
        QTRY_VERIFY_WITH_TIMEOUT(isDone, 40'000);
        QVERIFY(reply.hasArrived);
        QCOMPARE(reply.refusal, QString("not now — später"));
    }

    void socketIsAccessibleOnlyToUser()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        first.listen(&accept);
        const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther |
                            QFile::WriteOther | QFile::ExeGroup | QFile::ExeOther;
        QVERIFY(QFileInfo::exists(first.socketPath()));
        QCOMPARE(QFileInfo(first.socketPath()).permissions() & others, QFile::Permissions());
    }

    void displaysAndUsersHaveSeparateSessions()
    {
        QTemporaryDir folder;
        QTemporaryDir other;
        SingleInstance first(folder.path(), ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::Acquired);
        QCOMPARE(SingleInstance(folder.path(), ":2").claim(), SingleInstance::Claim::Acquired);
        QCOMPARE(SingleInstance(other.path(), ":1").claim(), SingleInstance::Claim::Acquired);
    }

    void exitReleasesSession()
    {
        QTemporaryDir folder;
        {
            SingleInstance first(folder.path(), ":1");
            first.claim();
            first.listen(&accept);
        }
        QCOMPARE(
            QDir(folder.path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
            QStringList());
        SingleInstance next(folder.path(), ":1");
        QCOMPARE(next.claim(), SingleInstance::Claim::Acquired);
    }

    void recoversFromCrash()
    {
        QTemporaryDir folder;
        SingleInstance next(folder.path(), ":1");
        {
            // Leave a socket without a listener and the lock file of a process that does not exist.
            QLocalServer crashed;
            QVERIFY(crashed.listen(next.socketPath()));
            QVERIFY(QFile::rename(next.socketPath(), next.socketPath() + ".aside"));
        }
        QVERIFY(QFile::rename(next.socketPath() + ".aside", next.socketPath()));
        QString lock = next.socketPath();
        QFile file(lock.replace(".socket", ".lock"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("4194303\nquellora\n" + QSysInfo::machineHostName().toUtf8() + "\n" +
                   QSysInfo::machineUniqueId() + "\n" + QSysInfo::bootUniqueId() + "\n");
        file.close();
        QCOMPARE(next.claim(), SingleInstance::Claim::Acquired);
        int activations = 0;
        next.listen([&activations](const RemoteCommand &, const QString &) {
            ++activations;
            return QString();
        });
        QVERIFY(activateFromThread(folder.path(), ":1"));
        QCOMPARE(activations, 1);
    }

    void rejectsOtherCommands_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("other command") << QByteArray("activate\n");
        QTest::newRow("two commands") << QByteArray("show\nquit\n");
        QTest::newRow("longer command") << QByteArray("showX\n");
        QTest::newRow("shorter command") << QByteArray("capt\n");
        QTest::newRow("upper case") << QByteArray("SHOW\n");
        QTest::newRow("empty line") << QByteArray("\n");
        QTest::newRow("zero bytes") << QByteArray(9, '\0');
        QTest::newRow("1 MiB") << QByteArray(1 << 20, 'a');
        QTest::newRow("argument") << QByteArray("show /etc/passwd\n");
    }
    void rejectsOtherCommands()
    {
        QFETCH(QByteArray, sent);
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        int activations = 0;
        first.listen([&activations](const RemoteCommand &, const QString &) {
            ++activations;
            return QString();
        });
        LogCapture log;
        QLocalSocket socket;
        socket.connectToServer(first.socketPath());
        QVERIFY(socket.waitForConnected());
        socket.write(sent);
        QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
        QCOMPARE(activations, 0);
        QCOMPARE(socket.readAll(), QByteArray());
        QVERIFY(log.lines.isEmpty());
        // It is still listening.
        QVERIFY(activateFromThread(folder.path(), ":1"));
        QCOMPARE(activations, 1);
    }

    void acceptsCommandInPieces()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        int activations = 0;
        first.listen([&activations](const RemoteCommand &, const QString &) {
            ++activations;
            return QString();
        });
        QLocalSocket socket;
        socket.connectToServer(first.socketPath());
        QVERIFY(socket.waitForConnected());
        for (const char byte : QByteArray("capture-no-send\n")) {
            QCOMPARE(activations, 0);
            socket.write(&byte, 1);
            socket.flush();
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(activations, 1);
        QTRY_COMPARE(socket.bytesAvailable(), 3);
        QCOMPARE(socket.readAll(), QByteArray("ok\n"));
    }

    void silentConnectionsAreLimited()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1", 300ms);
        first.claim();
        first.listen(&accept);
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
        // Accepted connections time out, which frees their slots.
        QTRY_COMPARE_WITH_TIMEOUT(refused(), qsizetype(silent.size()), 10'000);
        QVERIFY(activateFromThread(folder.path(), ":1"));
    }

    void hungInstanceTimesOut()
    {
        QTemporaryDir folder;
        SingleInstance first(folder.path(), ":1");
        first.claim();
        // A listener that never replies.
        QLocalServer hung;
        QVERIFY(hung.listen(first.socketPath()));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!SingleInstance(folder.path(), ":1").send(show(), {}, 200ms).hasArrived);
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    }

    void missingListenerTimesOut()
    {
        QTemporaryDir folder;
        QVERIFY(!SingleInstance(folder.path(), ":1").send(show(), {}, 100ms).hasArrived);
    }

    void unusableFolderDoesNotPreventStart()
    {
        QTemporaryDir folder;
        LogCapture log;
        SingleInstance instance(folder.filePath("missing"), ":1");
        QCOMPARE(instance.claim(), SingleInstance::Claim::Acquired);
        QCOMPARE(log.lines, QStringList{"[SingleInstance] WARNING: No lock can be made; a second "
                                        "start will not be noticed"});
        instance.listen(&accept);
        QCOMPARE(log.lines.size(), 1);
    }

    void socketPathTooLongIsLogged()
    {
        QTemporaryDir folder;
        const QString deep = folder.filePath(QString(120, 'x'));
        QVERIFY(QDir().mkpath(deep));
        LogCapture log;
        SingleInstance first(deep, ":1");
        QCOMPARE(first.claim(), SingleInstance::Claim::Acquired);
        first.listen(&accept);
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith(
            "[SingleInstance] WARNING: Not listening for further starts: "));
    }
};

QUELLORA_TEST(QCoreApplication, TestSingleInstance)
#include "test_single_instance.moc"
