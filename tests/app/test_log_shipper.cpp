#include "app/LogShipper.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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
    void ship()
    {
        LogShipper shipper(network, QUrl(server.baseUrl() + "/api/logs/app"),
                           folder.filePath(name));
        QSignalSpy finished(&shipper, &LogShipper::finished);
        shipper.shipLogs("token-value");
        QVERIFY(finished.wait());
    }

    QTemporaryDir folder;
    QString name = "pipeline.log";
    ScriptedHttpServer server;
    QNetworkAccessManager network;
    LogCapture log;
};

} // namespace

class TestLogShipper : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void wholeFileIsPosted()
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
        QVERIFY(QFile::exists(f.folder.filePath("pipeline.log")));
    }

    void otherStatusesAreNoSuccess()
    {
        for (const int status : {200, 401, 500}) {
            Fixture f;
            f.server.answerWith(ScriptedHttpServer::answer(status, {}), Ending::Close);
            f.ship();
            QCOMPARE(
                f.log.lines,
                QStringList{QStringLiteral("[LogShipper] Log upload returned %1").arg(status)});
        }
    }

    void filesWithoutTextAreSkipped_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("absent") << "absent.log" << QByteArray("x");
        QTest::newRow("empty") << "pipeline.log" << QByteArray();
        QTest::newRow("no text") << "pipeline.log" << QByteArray("\xff\xfe");
    }
    void filesWithoutTextAreSkipped()
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

    void transferErrorIsNotFatal()
    {
        Fixture f;
        f.server.answerWith("", Ending::Reset);
        f.ship();
        QVERIFY(f.log.lines.first().startsWith("[LogShipper] Failed to ship logs (non-fatal): "));
        QVERIFY(!f.log.lines.first().contains("token-value"));
    }
};

QTEST_GUILESS_MAIN(TestLogShipper)
#include "test_log_shipper.moc"
