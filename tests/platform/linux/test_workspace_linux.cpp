#include "base/Log.h"
#include "platform/linux/WorkspaceLinux.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

using namespace std::chrono_literals;

using namespace quellora;

/// Uses a stand-in for xdg-open that records its arguments.
class WorkspaceLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void opensUrls_data();
    void opensUrls();
    void refusesOtherUrls_data();
    void refusesOtherUrls();
    void opensFiles();
    void refusesNonRegularFile();
    void missingOpenerIsReported();
    void unstartableOpenerIsReported();
    void failingOpenerIsReported_data();
    void failingOpenerIsReported();
    void crashedOpenerIsReported();
    void runningOpenerCountsAsSuccess();
    void openerOutlivesWorkspace();
    void openerInheritsNullDevice();

private:
    OpenResult open(const QString &address);
    static OpenResult resultOf(const QFuture<OpenResult> &opening);
    QStringList opened() const;
    void install(const QByteArray &script);
    void installBlockingOpener(const QByteArray &lastCommand);
    pid_t waitForBlockingOpener();
    void releaseOpener();

    std::unique_ptr<QTemporaryDir> m_folder;
    QByteArray m_path;
    QStringList m_log;
    WorkspaceLinux m_workspace;
};

void WorkspaceLinuxTest::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_path = qgetenv("PATH");
    // Writes to a temporary file and renames it, so that "opened" is always complete.
    install("#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" > '" + m_folder->path().toLocal8Bit() +
            "/part' && /bin/mv '" + m_folder->path().toLocal8Bit() + "/part' '" +
            m_folder->path().toLocal8Bit() + "/opened'\n");
    qputenv("PATH", m_folder->path().toLocal8Bit());
    m_log.clear();
    Log::setSinkForTesting([this](const QString &line) { m_log << line; });
}

void WorkspaceLinuxTest::cleanup()
{
    qputenv("PATH", m_path);
    Log::setSinkForTesting({});
}

void WorkspaceLinuxTest::install(const QByteArray &script)
{
    QFile opener(m_folder->filePath(QStringLiteral("xdg-open")));
    QVERIFY(opener.open(QIODevice::WriteOnly | QIODevice::Truncate));
    opener.write(script);
    QVERIFY(opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

OpenResult WorkspaceLinuxTest::resultOf(const QFuture<OpenResult> &opening)
{
    if (QTest::qWaitFor([&] { return opening.isFinished(); }) && opening.resultCount() == 1)
        return opening.result();
    return tl::unexpected(OpenFailure{OpenFailure::Kind::Failed, {}, QStringLiteral("timeout")});
}

OpenResult WorkspaceLinuxTest::open(const QString &address)
{
    return resultOf(m_workspace.openUrl(QUrl(address)));
}

/// The number of arguments followed by the arguments; empty if nothing was opened.
QStringList WorkspaceLinuxTest::opened() const
{
    QFile file(m_folder->filePath(QStringLiteral("opened")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

void WorkspaceLinuxTest::opensUrls_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("argument");
    const auto row = [](const char *address, const char *argument) {
        QTest::newRow(address) << QString::fromUtf8(address) << QString::fromUtf8(argument);
    };
    row("https://app.example/login?callback=http://127.0.0.1:9877/oauth-callback",
        "https://app.example/login?callback=http://127.0.0.1:9877/oauth-callback");
    row("http://example.org/a b\"$(touch x)`'", "http://example.org/a%20b%22$(touch%20x)%60'");
    row("HTTPS://Example.org/ü", "https://example.org/%C3%BC");
    row("mailto:help@example.org", "mailto:help@example.org");
}

void WorkspaceLinuxTest::opensUrls()
{
    QFETCH(QString, address);
    QFETCH(QString, argument);
    QVERIFY(open(address));
    QCOMPARE(opened(), (QStringList{QStringLiteral("1"), argument}));
    QVERIFY(m_log.isEmpty());
}

void WorkspaceLinuxTest::refusesOtherUrls_data()
{
    QTest::addColumn<QString>("address");
    for (const char *address :
         {"file:///etc/passwd", "javascript:alert(1)", "data:text/html,x", "ftp://example.org/",
          "smb://example.org/share", "vnc://example.org", "//example.org", "example.org", "-h", "",
          "https://", "http:example.org", "mailto:", "about:blank"})
        QTest::newRow(address) << QString::fromUtf8(address);
}

void WorkspaceLinuxTest::refusesOtherUrls()
{
    QFETCH(QString, address);
    const OpenResult result = open(address);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, OpenFailure::Kind::Refused);
    QVERIFY2(result.error().text().startsWith(QStringLiteral("Could not open the address: ")),
             qPrintable(result.error().text()));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
    // The next address is the first one passed to the opener.
    QVERIFY(open(QStringLiteral("https://marker.example/")));
    QCOMPARE(opened(),
             (QStringList{QStringLiteral("1"), QStringLiteral("https://marker.example/")}));
}

void WorkspaceLinuxTest::opensFiles()
{
    const QString path = m_folder->filePath(QStringLiteral("-a picture #1.png"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(resultOf(m_workspace.openFile(path)));
    QCOMPARE(opened(), (QStringList{QStringLiteral("1"),
                                    QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded)}));
    QVERIFY(opened().last().startsWith(QStringLiteral("file:///")));
}

void WorkspaceLinuxTest::refusesNonRegularFile()
{
    for (const QString &path :
         {QString(), m_folder->filePath(QStringLiteral("missing.png")), m_folder->path(),
          QStringLiteral("/dev/null"), QStringLiteral("https://example.org/")}) {
        const OpenResult result = resultOf(m_workspace.openFile(path));
        QVERIFY(!result);
        QCOMPARE(result.error().kind, OpenFailure::Kind::Refused);
        QCOMPARE(result.error().text(),
                 QStringLiteral("Could not open the file: there is no such file"));
    }
}

void WorkspaceLinuxTest::missingOpenerIsReported()
{
    QVERIFY(QFile::remove(m_folder->filePath(QStringLiteral("xdg-open"))));
    const OpenResult result = open(QStringLiteral("https://example.org/"));
    QVERIFY(!result);
    QCOMPARE(result.error().kind, OpenFailure::Kind::Failed);
    QCOMPARE(result.error().text(),
             QStringLiteral("Could not open the browser: xdg-open is not installed"));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
}

void WorkspaceLinuxTest::unstartableOpenerIsReported()
{
    install("#!/nonexistent/interpreter\n");
    const OpenResult result = open(QStringLiteral("mailto:help@example.org"));
    QVERIFY(!result);
    QCOMPARE(result.error().text(),
             QStringLiteral("Could not open the mail program: xdg-open could not be started"));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
}

void WorkspaceLinuxTest::failingOpenerIsReported_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    QTest::newRow("usage") << 1 << "xdg-open ended with status 1";
    QTest::newRow("missing") << 2 << "xdg-open did not find it (status 2)";
    QTest::newRow("no program") << 3 << "there is no program for it (xdg-open, status 3)";
    QTest::newRow("program failed") << 4 << "its program failed (xdg-open, status 4)";
    QTest::newRow("unknown") << 255 << "xdg-open ended with status 255";
}

void WorkspaceLinuxTest::failingOpenerIsReported()
{
    QFETCH(int, status);
    QFETCH(QString, reason);
    install("#!/bin/sh\nexit " + QByteArray::number(status) + '\n');
    OpenResult result = open(QStringLiteral("https://example.org/"));
    QVERIFY(!result);
    QCOMPARE(result.error().kind, OpenFailure::Kind::Failed);
    QCOMPARE(result.error().reason, reason);
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
    result = resultOf(m_workspace.openFile(QCoreApplication::applicationFilePath()));
    QVERIFY(!result);
    QCOMPARE(result.error().text(), QStringLiteral("Could not open the file: ") + reason);
}

void WorkspaceLinuxTest::crashedOpenerIsReported()
{
    install("#!/bin/sh\nkill -9 $$\n");
    const OpenResult result = open(QStringLiteral("https://example.org/"));
    QVERIFY(!result);
    QCOMPARE(result.error().reason, QStringLiteral("xdg-open crashed"));
}

/// Installs an opener that records its process id and blocks until releaseOpener().
/// @param lastCommand shell command that it runs last
void WorkspaceLinuxTest::installBlockingOpener(const QByteArray &lastCommand)
{
    const QByteArray folder = m_folder->path().toLocal8Bit();
    QCOMPARE(::mkfifo(folder + "/hold", 0600), 0);
    install("#!/bin/sh\ncd '" + folder +
            "'\necho $$ > part && /bin/mv part process\nread -r line < hold\n" + lastCommand +
            '\n');
}

/// Waits for the blocking opener to start.
/// @return its process id, 0 on timeout
pid_t WorkspaceLinuxTest::waitForBlockingOpener()
{
    QFile file(m_folder->filePath(QStringLiteral("process")));
    return QTest::qWaitFor([&] { return file.open(QIODevice::ReadOnly); })
               ? file.readAll().trimmed().toInt()
               : 0;
}

void WorkspaceLinuxTest::releaseOpener()
{
    QFile hold(m_folder->filePath(QStringLiteral("hold")));
    QVERIFY(hold.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    hold.write("go on\n");
}

void WorkspaceLinuxTest::runningOpenerCountsAsSuccess()
{
    installBlockingOpener("exit 4");
    WorkspaceLinux impatient(50ms);
    QVERIFY(resultOf(impatient.openUrl(QUrl(QStringLiteral("https://example.org/")))));
    const pid_t process = waitForBlockingOpener();
    QVERIFY(process > 0);
    releaseOpener();
    // Its later exit status is ignored, but the process is reaped.
    QTRY_COMPARE(::kill(process, 0), -1);
    QVERIFY(m_log.isEmpty());
}

void WorkspaceLinuxTest::openerOutlivesWorkspace()
{
    installBlockingOpener("/bin/mv process opened");
    auto workspace = std::make_unique<WorkspaceLinux>();
    const QFuture<OpenResult> opening =
        workspace->openUrl(QUrl(QStringLiteral("https://example.org/")));
    const pid_t process = waitForBlockingOpener();
    QVERIFY(process > 0);
    // Runs in a session of its own, so signals from this program's terminal do not reach it.
    QCOMPARE(::getsid(process), process);
    workspace.reset();
    QVERIFY(opening.isCanceled());
    releaseOpener();
    QTRY_COMPARE(opened(), QStringList{QString::number(process)});
}

void WorkspaceLinuxTest::openerInheritsNullDevice()
{
    const QByteArray file = m_folder->path().toLocal8Bit() + "/opened";
    install("#!/bin/sh\nme=/proc/$$/fd\ntargets=$(/bin/readlink $me/0 $me/1 $me/2)\n"
            "echo \"$targets\" > '" +
            file + "'\n");
    QVERIFY(open(QStringLiteral("https://example.org/")));
    QCOMPARE(opened(), QStringList(3, QStringLiteral("/dev/null")));
}

QUELLORA_TEST(QCoreApplication, WorkspaceLinuxTest)
#include "test_workspace_linux.moc"
