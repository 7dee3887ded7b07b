#include "app/Log.h"
#include "platform/linux/WorkspaceLinux.h"

#include <QTemporaryDir>
#include <QThreadPool>
#include <QtTest>

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
    void withoutOpenerIsUnsupported();
    void logsAnOpenerThatCannotStart();

private:
    QStringList opened() const;
    void install(const QByteArray &script);

    std::unique_ptr<QTemporaryDir> m_folder;
    QByteArray m_path;
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
}

void WorkspaceLinuxTest::cleanup()
{
    QThreadPool::globalInstance()->waitForDone();
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
    QVERIFY(m_workspace.openUrl(QUrl(address)).isApplied());
    QTRY_COMPARE(opened(), (QStringList{QStringLiteral("1"), argument}));
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
    const Capability result = m_workspace.openUrl(QUrl(address));
    QCOMPARE(result.state(), Capability::State::Unsupported);
    QVERIFY(!result.reason().isEmpty());
    QThreadPool::globalInstance()->waitForDone();
    // The next address is the first one that the opener sees.
    QVERIFY(m_workspace.openUrl(QUrl(QStringLiteral("https://marker.example/"))).isApplied());
    QTRY_COMPARE(opened(),
                 (QStringList{QStringLiteral("1"), QStringLiteral("https://marker.example/")}));
}

void WorkspaceLinuxTest::opensFiles()
{
    const QString path = m_folder->filePath(QStringLiteral("-a picture #1.png"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(m_workspace.openFile(path).isApplied());
    QTRY_COMPARE(opened(), (QStringList{QStringLiteral("1"),
                                        QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded)}));
    QVERIFY(opened().last().startsWith(QStringLiteral("file:///")));
}

void WorkspaceLinuxTest::refusesWhatIsNoFile()
{
    for (const QString &path :
         {QString(), m_folder->filePath(QStringLiteral("missing.png")), m_folder->path(),
          QStringLiteral("/dev/null"), QStringLiteral("https://example.org/")})
        QCOMPARE(m_workspace.openFile(path).state(), Capability::State::Unsupported);
}

void WorkspaceLinuxTest::withoutOpenerIsUnsupported()
{
    QVERIFY(QFile::remove(m_folder->filePath(QStringLiteral("xdg-open"))));
    const Capability result = m_workspace.openUrl(QUrl(QStringLiteral("https://example.org/")));
    QCOMPARE(result.state(), Capability::State::Unsupported);
    QVERIFY(result.reason().contains(QStringLiteral("xdg-open")));
}

void WorkspaceLinuxTest::logsAnOpenerThatCannotStart()
{
    install("#!/nonexistent/interpreter\n");
    QStringList log;
    Log::setSinkForTesting([&log](const QString &line) { log << line; });
    QVERIFY(m_workspace.openUrl(QUrl(QStringLiteral("https://example.org/"))).isApplied());
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(log.size(), 1);
    QVERIFY2(log.first().startsWith(QStringLiteral("[Workspace] ERROR: Could not start ")),
             qPrintable(log.first()));
}

QTEST_GUILESS_MAIN(WorkspaceLinuxTest)
#include "tst_workspacelinux.moc"
