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

/// With a stand-in for xdg-open that notes its arguments.
class WorkspaceLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void opensAddresses_data();
    void opensAddresses();
    void refusesOtherAddresses_data();
    void refusesOtherAddresses();
    void opensFiles();
    void refusesWhatIsNoFile();
    void withoutOpenerNothingOpens();
    void anOpenerThatCannotStart();
    void anOpenerThatFails_data();
    void anOpenerThatFails();
    void anOpenerThatIsKilled();
    void anOpenerThatStaysHasOpenedIt();
    void openersOutliveTheWorkspace();
    void openersSayNothingOnStandardOutput();

private:
    OpenResult open(const QString &address);
    static OpenResult resultOf(const QFuture<OpenResult> &opening);
    QStringList opened() const;
    void install(const QByteArray &script);
    void installStaying(const QByteArray &end);
    pid_t staying();
    void letGo();

    std::unique_ptr<QTemporaryDir> m_folder;
    QByteArray m_path;
    QStringList m_log;
    WorkspaceLinux m_workspace;
};

void WorkspaceLinuxTest::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_path = qgetenv("PATH");
    // Written aside and moved, so that a noted line is always complete.
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
    return tl::unexpected(OpenFailure{OpenFailure::Kind::Failed, {}, QStringLiteral("no end")});
}

OpenResult WorkspaceLinuxTest::open(const QString &address)
{
    return resultOf(m_workspace.openUrl(QUrl(address)));
}

/// Number of arguments and the arguments; empty while nothing was opened.
QStringList WorkspaceLinuxTest::opened() const
{
    QFile file(m_folder->filePath(QStringLiteral("opened")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

void WorkspaceLinuxTest::opensAddresses_data()
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

void WorkspaceLinuxTest::opensAddresses()
{
    QFETCH(QString, address);
    QFETCH(QString, argument);
    QVERIFY(open(address));
    QCOMPARE(opened(), (QStringList{QStringLiteral("1"), argument}));
    QVERIFY(m_log.isEmpty());
}

void WorkspaceLinuxTest::refusesOtherAddresses_data()
{
    QTest::addColumn<QString>("address");
    for (const char *address :
         {"file:///etc/passwd", "javascript:alert(1)", "data:text/html,x", "ftp://example.org/",
          "smb://example.org/share", "vnc://example.org", "//example.org", "example.org", "-h", "",
          "https://", "http:example.org", "mailto:", "about:blank"})
        QTest::newRow(address) << QString::fromUtf8(address);
}

void WorkspaceLinuxTest::refusesOtherAddresses()
{
    QFETCH(QString, address);
    const OpenResult result = open(address);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, OpenFailure::Kind::Refused);
    QVERIFY2(result.error().text().startsWith(QStringLiteral("Could not open the address: ")),
             qPrintable(result.error().text()));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
    // The next address is the first one that the opener sees.
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

void WorkspaceLinuxTest::refusesWhatIsNoFile()
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

void WorkspaceLinuxTest::withoutOpenerNothingOpens()
{
    QVERIFY(QFile::remove(m_folder->filePath(QStringLiteral("xdg-open"))));
    const OpenResult result = open(QStringLiteral("https://example.org/"));
    QVERIFY(!result);
    QCOMPARE(result.error().kind, OpenFailure::Kind::Failed);
    QCOMPARE(result.error().text(),
             QStringLiteral("Could not open the browser: xdg-open is not installed"));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
}

void WorkspaceLinuxTest::anOpenerThatCannotStart()
{
    install("#!/nonexistent/interpreter\n");
    const OpenResult result = open(QStringLiteral("mailto:help@example.org"));
    QVERIFY(!result);
    QCOMPARE(result.error().text(),
             QStringLiteral("Could not open the mail program: xdg-open could not be started"));
    QCOMPARE(m_log, QStringList{QStringLiteral("[Workspace] ERROR: ") + result.error().text()});
}

void WorkspaceLinuxTest::anOpenerThatFails_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    QTest::newRow("usage") << 1 << "xdg-open ended with status 1";
    QTest::newRow("missing") << 2 << "xdg-open did not find it (status 2)";
    QTest::newRow("no program") << 3 << "there is no program for it (xdg-open, status 3)";
    QTest::newRow("program failed") << 4 << "its program failed (xdg-open, status 4)";
    QTest::newRow("unknown") << 255 << "xdg-open ended with status 255";
}

void WorkspaceLinuxTest::anOpenerThatFails()
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

void WorkspaceLinuxTest::anOpenerThatIsKilled()
{
    install("#!/bin/sh\nkill -9 $$\n");
    const OpenResult result = open(QStringLiteral("https://example.org/"));
    QVERIFY(!result);
    QCOMPARE(result.error().reason, QStringLiteral("xdg-open crashed"));
}

/// An opener that notes its process and stays until it is let go.
void WorkspaceLinuxTest::installStaying(const QByteArray &end)
{
    const QByteArray folder = m_folder->path().toLocal8Bit();
    QCOMPARE(::mkfifo(folder + "/hold", 0600), 0);
    install("#!/bin/sh\ncd '" + folder +
            "'\necho $$ > part && /bin/mv part process\nread -r line < hold\n" + end + '\n');
}

/// The process of the opener that stays; waits for its start.
pid_t WorkspaceLinuxTest::staying()
{
    QFile file(m_folder->filePath(QStringLiteral("process")));
    return QTest::qWaitFor([&] { return file.open(QIODevice::ReadOnly); })
               ? file.readAll().trimmed().toInt()
               : 0;
}

void WorkspaceLinuxTest::letGo()
{
    QFile hold(m_folder->filePath(QStringLiteral("hold")));
    QVERIFY(hold.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    hold.write("go on\n");
}

void WorkspaceLinuxTest::anOpenerThatStaysHasOpenedIt()
{
    installStaying("exit 4");
    WorkspaceLinux impatient(50ms);
    QVERIFY(resultOf(impatient.openUrl(QUrl(QStringLiteral("https://example.org/")))));
    const pid_t process = staying();
    QVERIFY(process > 0);
    letGo();
    // Its end, however bad, is nobody's concern any more; but it leaves no process behind.
    QTRY_COMPARE(::kill(process, 0), -1);
    QVERIFY(m_log.isEmpty());
}

void WorkspaceLinuxTest::openersOutliveTheWorkspace()
{
    installStaying("/bin/mv process opened");
    auto workspace = std::make_unique<WorkspaceLinux>();
    const QFuture<OpenResult> opening =
        workspace->openUrl(QUrl(QStringLiteral("https://example.org/")));
    const pid_t process = staying();
    QVERIFY(process > 0);
    // What ends this program from a terminal ends its session only.
    QCOMPARE(::getsid(process), process);
    workspace.reset();
    QVERIFY(opening.isCanceled());
    letGo();
    QTRY_COMPARE(opened(), QStringList{QString::number(process)});
}

void WorkspaceLinuxTest::openersSayNothingOnStandardOutput()
{
    const QByteArray file = m_folder->path().toLocal8Bit() + "/opened";
    install("#!/bin/sh\nme=/proc/$$/fd\nthere=$(/bin/readlink $me/0 $me/1 $me/2)\n"
            "echo \"$there\" > '" +
            file + "'\n");
    QVERIFY(open(QStringLiteral("https://example.org/")));
    QCOMPARE(opened(), QStringList(3, QStringLiteral("/dev/null")));
}

QUELLORA_TEST(QCoreApplication, WorkspaceLinuxTest)
#include "test_workspace_linux.moc"
