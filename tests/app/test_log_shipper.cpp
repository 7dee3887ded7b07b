#include "app/LogShipper.h"
#include "backend/NotificationCenter.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"
#include "fakes/StatuslessNetwork.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFile>
#include <QScopeGuard>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

using namespace quellora;
using Ending = ScriptedHttpServer::Ending;

namespace {

struct Fixture
{
    explicit Fixture(const QByteArray &content = "[09:05:03.007] x\n")
    {
        QFile file(folder.filePath("pipeline.log"));
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
    }
    std::unique_ptr<LogShipper> make()
    {
        return std::make_unique<LogShipper>(network, QUrl(server.baseUrl() + "/api/logs/app"),
                                            folder.filePath(name));
    }
    void ship(const QString &token = "token-value")
    {
        const auto shipper = make();
        QSignalSpy finished(shipper.get(), &LogShipper::finished);
        shipper->shipLogs(token);
        QVERIFY(finished.wait());
    }

    QTemporaryDir folder;
    QString name = "pipeline.log";
    ScriptedHttpServer server;
    QNetworkAccessManager network;
    LogCapture log;
};

/// Records each request's transfer timeout and replaces it with 50 ms.
class ShortTimeoutNetwork : public QNetworkAccessManager
{
public:
    QList<int> requestedTimeouts;

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *body) override
    {
        requestedTimeouts << request.transferTimeout();
        QNetworkRequest shortened = request;
        shortened.setTransferTimeout(50);
        return QNetworkAccessManager::createRequest(operation, shortened, body);
    }
};

} // namespace

class TestLogShipper : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void postsWholeFile()
    {
        Fixture f(QByteArray("line\n").repeated(1000));
        f.server.answerWith(ScriptedHttpServer::answer(202, {}), Ending::Close);
        f.ship();
        QCOMPARE(f.log.lines, QStringList{"[LogShipper] Logs shipped successfully (5000 bytes)"});
        const auto &request = f.server.requests().first();
        QCOMPARE(request.startLine(), "POST /api/logs/app HTTP/1.1");
        QCOMPARE(request.header("Authorization"), "Bearer token-value");
        QCOMPARE(request.header("Content-Type"), "text/plain");
        QCOMPARE(request.header("X-App-Version"), "1.0.0");
        QCOMPARE(request.body(), QByteArray("line\n").repeated(1000));
        const auto names = request.headerNames();
        QVERIFY(names.indexOf("Authorization") < names.indexOf("Content-Type"));
        QVERIFY(names.indexOf("Content-Type") < names.indexOf("X-App-Version"));
        // The file is not modified.
        QFile file(f.folder.filePath("pipeline.log"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("line\n").repeated(1000));
    }

    void otherStatusCodesAreFailures()
    {
        for (const int status : {200, 201, 204, 302, 401, 413, 500}) {
            Fixture f;
            f.server.answerWith(ScriptedHttpServer::answer(status, {}), Ending::Close);
            f.ship();
            QCOMPARE(
                f.log.lines,
                QStringList{QStringLiteral("[LogShipper] Log upload returned %1").arg(status)});
        }
    }

    void unusableFilesAreSkipped_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("absent") << "absent.log" << QByteArray("x");
        QTest::newRow("empty") << "pipeline.log" << QByteArray();
        QTest::newRow("invalid UTF-8") << "pipeline.log" << QByteArray("\xff\xfe");
        QTest::newRow("invalid UTF-8 after 3 MB")
            << "pipeline.log" << QByteArray(3'000'000, 'x') + QByteArray("\xff");
        QTest::newRow("folder") << "." << QByteArray("x");
        QTest::newRow("missing folder") << "a/b.log" << QByteArray("x");
        QTest::newRow("endless device") << "/dev/zero" << QByteArray("x");
    }
    void unusableFilesAreSkipped()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        Fixture f(content);
        f.name = name;
        f.ship();
        QCOMPARE(f.log.lines, QStringList{QString::fromUtf8(
                                  "[LogShipper] No log file found or empty — skipping")});
        QCOMPARE(f.server.connectionCount(), 0);
    }

    void pipeIsSkippedWithoutBlocking()
    {
        Fixture f;
        f.name = "pipe";
        QCOMPARE(mkfifo(QFile::encodeName(f.folder.filePath(f.name)).constData(), 0600), 0);
        f.ship();
        QCOMPARE(f.log.lines, QStringList{QString::fromUtf8(
                                  "[LogShipper] No log file found or empty — skipping")});
    }

    void unreadableFileIsSkipped()
    {
        Fixture f;
        QFile::setPermissions(f.folder.filePath(f.name), QFileDevice::WriteOwner);
        // Root can read any file, so switch the effective user of all threads.
        const uid_t user = geteuid();
        constexpr uid_t nobody = 65534;
        if (user == 0)
            QCOMPARE(seteuid(nobody), 0);
        const auto restoreUser = qScopeGuard([user] { Q_UNUSED(seteuid(user)) });
        QVERIFY(!QFile(f.folder.filePath(f.name)).open(QIODevice::ReadOnly));
        f.ship();
        QCOMPARE(f.log.lines, QStringList{QString::fromUtf8(
                                  "[LogShipper] No log file found or empty — skipping")});
    }

    void hugeFileIsPostedUnchanged()
    {
        // Multi-byte characters, so that some are split at chunk boundaries.
        const QByteArray content =
            QByteArray("[09:05:03.007] — \xe2\x82\xac\n").repeated(1'000'000);
        Fixture f(content);
        f.server.answerWith(ScriptedHttpServer::answer(202, {}), Ending::Close);
        f.ship();
        QCOMPARE(f.log.lines,
                 QStringList{QStringLiteral("[LogShipper] Logs shipped successfully (%1 bytes)")
                                 .arg(content.size())});
        QVERIFY(f.server.requests().first().body() == content);
    }

    void fileIsReadOnWorkerThread()
    {
        Fixture f;
        QThreadPool &pool = *QThreadPool::globalInstance();
        const int threads = pool.maxThreadCount();
        pool.setMaxThreadCount(1);
        QSemaphore gate;
        pool.start([&gate] { gate.acquire(); });
        const auto shipper = f.make();
        QSignalSpy finished(shipper.get(), &LogShipper::finished);
        shipper->shipLogs("t");
        // The only worker is blocked, so anything done now would be done on the main thread.
        QCoreApplication::processEvents();
        QCOMPARE(f.server.connectionCount(), 0);
        QFile::remove(f.folder.filePath(f.name));
        gate.release();
        QVERIFY(finished.wait());
        pool.setMaxThreadCount(threads);
        QCOMPARE(f.log.lines, QStringList{QString::fromUtf8(
                                  "[LogShipper] No log file found or empty — skipping")});
    }

    void lostConnectionIsNotRetried_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("reset");
        QTest::newRow("closed before response") << QByteArray() << false;
        QTest::newRow("reset before response") << QByteArray() << true;
        QTest::newRow("closed within header") << QByteArray("HTTP/1.1 202 S\r\nX-") << false;
        QTest::newRow("reset within header") << QByteArray("HTTP/1.1 202 S\r\nX-") << true;
    }
    void lostConnectionIsNotRetried()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, reset);
        Fixture f;
        f.server.answerWith(bytes, reset ? Ending::Reset : Ending::Close);
        f.ship();
        QCOMPARE(f.log.lines.size(), 1);
        QVERIFY(f.log.lines.first().startsWith("[LogShipper] Failed to ship logs (non-fatal): "));
        QVERIFY(!f.log.lines.first().contains("token-value"));
        f.ship();
        QCOMPARE(f.server.requests().size(), 2);
    }

    void statusSufficesWithoutBody()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 202 S\r\nContent-Length: 1000000000\r\n\r\nx",
                            Ending::KeepOpen);
        f.ship();
        QCOMPARE(f.log.lines, QStringList{"[LogShipper] Logs shipped successfully (17 bytes)"});
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void timesOutAfterHalfAMinute()
    {
        Fixture f;
        ShortTimeoutNetwork network;
        f.server.answerWith({}, Ending::KeepOpen);
        LogShipper shipper(network, QUrl(f.server.baseUrl() + "/api/logs/app"),
                           f.folder.filePath(f.name));
        QSignalSpy finished(&shipper, &LogShipper::finished);
        shipper.shipLogs("token-value");
        QVERIFY(finished.wait());
        QCOMPARE(network.requestedTimeouts, QList<int>{30'000});
        QCOMPARE(f.log.lines, QStringList{"[LogShipper] Failed to ship logs (non-fatal): The "
                                          "request timed out."});
    }

    void redirectIsNotFollowed()
    {
        ScriptedHttpServer elsewhere;
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(
                                307, {}, "Location: " + elsewhere.baseUrl().toUtf8() + "/\r\n"),
                            Ending::Close);
        f.ship();
        QCOMPARE(f.log.lines, QStringList{"[LogShipper] Log upload returned 307"});
        QCOMPARE(elsewhere.connectionCount(), 0);
    }

    void nonHttpResponseFails()
    {
        Fixture f;
        StatuslessNetwork network;
        LogShipper shipper(network, QUrl("http://127.0.0.1:1/"), f.folder.filePath(f.name));
        QSignalSpy finished(&shipper, &LogShipper::finished);
        shipper.shipLogs("t");
        QVERIFY(finished.wait());
        QCOMPARE(
            f.log.lines,
            QStringList{"[LogShipper] Failed to ship logs (non-fatal): Response was not HTTP"});
    }

    void tokenWithLineBreakIsRejected()
    {
        Fixture f;
        f.ship("t\r\nX-Evil: 1");
        QCOMPARE(f.log.lines,
                 QStringList{"[LogShipper] Failed to ship logs (non-fatal): The session token "
                             "contains control characters"});
        QCOMPARE(f.server.connectionCount(), 0);
    }

    void requestsDuringUploadAreCombined()
    {
        Fixture f;
        const auto shipper = f.make();
        QSignalSpy finished(shipper.get(), &LogShipper::finished);
        shipper->shipLogs("first");
        QTRY_COMPARE(f.server.requests().size(), 1);
        shipper->shipLogs("second");
        shipper->shipLogs("third");
        QCoreApplication::processEvents();
        QCOMPARE(f.server.connectionCount(), 1);
        f.server.answerWith(ScriptedHttpServer::answer(202, {}), Ending::Close);
        f.server.send(0, ScriptedHttpServer::answer(202, {}));
        QTRY_COMPARE(finished.count(), 2);
        QCOMPARE(f.server.requests().size(), 2);
        QCOMPARE(f.server.requests().last().header("Authorization"), "Bearer third");
    }

    void refreshedConfigurationRequestsLogs_data()
    {
        QTest::addColumn<int>("requested");
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<int>("uploads");
        QTest::newRow("requested") << 1 << true << 1;
        QTest::newRow("not requested") << 0 << true << 0;
        QTest::newRow("absent from the configuration") << -1 << true << 0;
        QTest::newRow("no token") << 1 << false << 0;
    }
    void refreshedConfigurationRequestsLogs()
    {
        QFETCH(int, requested);
        QFETCH(bool, signedIn);
        QFETCH(int, uploads);
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(202, {}), Ending::Close);
        const auto shipper = f.make();
        QSignalSpy finished(shipper.get(), &LogShipper::finished);
        NotificationCenter notifications;
        std::optional<QString> token;
        shipper->follow(notifications, [&token] { return token; });
        if (signedIn)
            token = "current";
        AppConfigResponse config;
        if (requested >= 0)
            config.requestLogs = requested == 1;
        for (int i = 1; i <= 2; ++i) {
            Q_EMIT notifications.configDidUpdate(config);
            if (uploads == 0)
                continue;
            // Each such configuration uploads the whole file again.
            QTRY_COMPARE(finished.count(), i);
            QCOMPARE(f.server.requests().size(), i);
            QCOMPARE(f.server.requests().last().header("Authorization"), "Bearer current");
            QCOMPARE(f.server.requests().last().body(), "[09:05:03.007] x\n");
        }
        if (uploads == 0) {
            // Uploads run in order, so an earlier request would arrive before this one.
            shipper->shipLogs("later");
            QTRY_COMPARE(finished.count(), 1);
            QCOMPARE(f.server.requests().first().header("Authorization"), "Bearer later");
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestLogShipper)
#include "test_log_shipper.moc"
