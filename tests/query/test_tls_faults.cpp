#include "../backend/SignInAnswers.h"
#include "ProxyFixture.h"
#include "backend/AuthService.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTemporaryDir>

using namespace quellora;
using Kind = QueryError::Kind;

namespace {

/// A server with encryption that notes what it could decrypt.
class TlsServer : public QSslServer
{
public:
    TlsServer(const QString &certificate, const QString &key)
    {
        QFile keyFile(key);
        if (!keyFile.open(QIODevice::ReadOnly))
            qFatal("no key");
        QSslConfiguration configuration = sslConfiguration();
        configuration.setLocalCertificateChain(QSslCertificate::fromPath(certificate));
        configuration.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
        setSslConfiguration(configuration);
        if (!listen(QHostAddress::LocalHost))
            qFatal("cannot listen");
        connect(this, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                    received += socket->readAll();
                    if (received.contains("\r\n\r\n"))
                        socket->write(answer);
                    if (cutsAnswer) {
                        socket->flush();
                        // Without the goodbye of the encryption.
                        socket->abort();
                    }
                });
            }
        });
    }
    QString url(const QString &host = QStringLiteral("127.0.0.1")) const
    {
        return QStringLiteral("https://%1:%2").arg(host).arg(serverPort());
    }

    QByteArray received;
    QByteArray answer;
    bool cutsAnswer = false;
};

} // namespace

/// Faults of the encryption: each ends with a text that tells it, and neither a password nor a
/// token nor a question is sent before the server has proved who it is.
class TestTlsFaults : public ProxyFixture
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QSslConfiguration::setDefaultConfiguration(m_before); }
    void goodCertificateIsTaken();
    void badCertificateIsSentNothing_data();
    void badCertificateIsSentNothing();
    void handshakeThatIsCutOrNone_data();
    void handshakeThatIsCutOrNone();
    void answerThatIsCut();
    void certificateThatChangesAfterSignIn();

private:
    void openssl(const QString &arguments)
    {
        QProcess process;
        process.setWorkingDirectory(m_folder.path());
        process.start(QStringLiteral("openssl"), arguments.split(QLatin1Char(' ')));
        if (!process.waitForFinished() || process.exitCode() != 0)
            qFatal("openssl: %s", process.readAllStandardError().constData());
    }
    /// Makes NAME.crt and NAME.key, signed by the trusted authority.
    void makeCertificate(const QString &name, const QString &host, int days)
    {
        const QString key =
            QStringLiteral("-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=") + host;
        openssl(
            QStringLiteral("req %1 -addext subjectAltName=%2 -keyout %3.key -out %3.csr")
                .arg(key, host.contains(QLatin1Char('1')) ? "IP:" + host : "DNS:" + host, name));
        openssl(QStringLiteral("x509 -req -in %1.csr -CA ca.crt -CAkey ca.key -CAcreateserial "
                               "-copy_extensions copy -days %2 -out %1.crt")
                    .arg(name)
                    .arg(days));
    }
    QString file(const QString &name) const { return m_folder.filePath(name); }
    std::unique_ptr<TlsServer> server(const QString &name) const
    {
        return std::make_unique<TlsServer>(file(name + QStringLiteral(".crt")),
                                           file(name + QStringLiteral(".key")));
    }
    /// Signs in at this address and asks there; returns the texts that the log and the user get.
    QStringList texts(const QString &url)
    {
        AuthService auth(*m_network, BackendEndpoints(url), &sampleDevice);
        const QFuture<LoginResult> login =
            auth.login(QStringLiteral("e@example.com"), QStringLiteral("pass-word"));
        if (!QTest::qWaitFor([&login] { return login.isFinished(); }, 10'000))
            qFatal("the sign-in did not end");
        QStringList found;
        if (!login.result())
            found << login.result().error().description() << m_log->lines.takeLast();
        m_service = std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(url));
        QueryRecorder recorder(start());
        if (!recorder.waitForOutcome())
            qFatal("the question did not end");
        if (!recorder.outcome->has_value())
            found << recorder.outcome->error().message;
        return found;
    }

    QTemporaryDir m_folder;
    QSslConfiguration m_before = QSslConfiguration::defaultConfiguration();
};

void TestTlsFaults::initTestCase()
{
    openssl(QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                           "-subj /CN=Authority -days 2 -keyout ca.key -out ca.crt"));
    openssl(QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                           "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -days 2 "
                           "-keyout self.key -out self.crt"));
    makeCertificate(QStringLiteral("good"), QStringLiteral("127.0.0.1"), 2);
    makeCertificate(QStringLiteral("expired"), QStringLiteral("127.0.0.1"), -1);
    makeCertificate(QStringLiteral("other"), QStringLiteral("backend.example"), 2);
    QSslConfiguration trusting = m_before;
    trusting.setCaCertificates(QSslCertificate::fromPath(file(QStringLiteral("ca.crt"))));
    QSslConfiguration::setDefaultConfiguration(trusting);
}

void TestTlsFaults::goodCertificateIsTaken()
{
    const auto secure = server(QStringLiteral("good"));
    secure->answer = ScriptedHttpServer::answer(401, {}, "Connection: close\r\n");
    const QStringList found = texts(secure->url());
    QCOMPARE(found.value(0), AuthError::invalidCredentials().description());
    QVERIFY(secure->received.contains("pass-word"));
}

void TestTlsFaults::badCertificateIsSentNothing_data()
{
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("reason");
    QTest::newRow("expired") << "expired"
                             << "The certificate has expired";
    QTest::newRow("of another host")
        << "other"
        << "The host name did not match any of the valid hosts for this certificate";
    QTest::newRow("self-signed") << "self"
                                 << "The certificate is self-signed, and untrusted";
}

void TestTlsFaults::badCertificateIsSentNothing()
{
    QFETCH(QString, certificate);
    QFETCH(QString, reason);
    const auto secure = server(certificate);
    const QStringList found = texts(secure->url());
    QCOMPARE(found.size(), 3);
    QCOMPARE(found.at(0), AuthError::networkError(-1).description());
    QVERIFY2(found.at(1).contains(reason), qPrintable(found.at(1)));
    QVERIFY2(found.at(2).contains(reason), qPrintable(found.at(2)));
    QCOMPARE(secure->received, QByteArray());
}

void TestTlsFaults::handshakeThatIsCutOrNone_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("closed at once") << QByteArray();
    QTest::newRow("cut in a record") << QByteArray::fromHex("160303007a0200");
    QTest::newRow("record that is none") << QByteArray(600, '\xff');
    QTest::newRow("plain text") << ScriptedHttpServer::answer(200, goodBody());
}

void TestTlsFaults::handshakeThatIsCutOrNone()
{
    QFETCH(QByteArray, bytes);
    QTcpServer plain;
    QVERIFY(plain.listen(QHostAddress::LocalHost));
    QByteArray received;
    connect(&plain, &QTcpServer::newConnection, this, [&] {
        QTcpSocket *socket = plain.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [&, socket] {
            received += socket->readAll();
            socket->write(bytes);
            socket->disconnectFromHost();
        });
    });
    const QStringList found = texts(QStringLiteral("https://127.0.0.1:%1").arg(plain.serverPort()));
    QCOMPARE(found.size(), 3);
    QCOMPARE(found.at(0), AuthError::networkError(-1).description());
    QVERIFY(!found.at(2).isEmpty());
    for (const char *secret : {"pass-word", "example.com", "token-1", "Hi"})
        QVERIFY(!received.contains(secret));
}

void TestTlsFaults::answerThatIsCut()
{
    const auto secure = server(QStringLiteral("good"));
    secure->answer = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                     "Content-Length: 5000\r\n\r\n" +
                     chunkLine("a");
    secure->cutsAnswer = true;
    m_service = std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(secure->url()));
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(!recorder.outcome->has_value());
    QVERIFY(!recorder.outcome->error().message.isEmpty());
    // Never sent twice.
    QCOMPARE(secure->received.count("POST "), 1);
}

void TestTlsFaults::certificateThatChangesAfterSignIn()
{
    auto secure = server(QStringLiteral("good"));
    secure->answer = ScriptedHttpServer::answer(200, goodBody(), "Connection: close\r\n");
    AuthService auth(*m_network, BackendEndpoints(secure->url()), &sampleDevice);
    const QFuture<LoginResult> login = auth.login(QStringLiteral("e"), QStringLiteral("p"));
    QVERIFY(QTest::qWaitFor([&login] { return login.isFinished(); }, 10'000));
    QVERIFY(login.result());
    const quint16 port = secure->serverPort();
    secure->close();
    auto impostor = server(QStringLiteral("self"));
    impostor->close();
    QVERIFY(impostor->listen(QHostAddress::LocalHost, port));
    m_service = std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(impostor->url()));
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->error().message.contains(QStringLiteral("self-signed")));
    QCOMPARE(impostor->received, QByteArray());
}

QUELLORA_TEST(QCoreApplication, TestTlsFaults)
#include "test_tls_faults.moc"
