#include "base/ProjectPaths.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <cstring>

using namespace quellora;

namespace {

// Modes in which the tests start this program as a child process.
constexpr auto printRootOption = "--print-root";
constexpr auto withoutArguments = "--without-arguments";

/// Prints ProjectPaths::projectRoot() of this process.
int printRoot(int &argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const auto root = ProjectPaths::projectRoot();
    std::printf("%s", root ? qPrintable(root->canonicalPath()) : "none");
    return 0;
}

struct Outcome
{
    QString root;
    QString errors;
    bool crashed = false;
};

} // namespace

/// Project root depending on how the program was started.
class TestProjectPaths : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_root = QDir(m_folder->path()).canonicalPath();
        for (const char *name : {"install/bin", "links", "elsewhere"})
            QVERIFY(QDir(m_root).mkpath(name));
        m_program = m_root + "/install/bin/program";
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), m_program));
        touch(m_root + "/install/config.json");
    }

    void searchesAncestorsOfAbsoluteProgramPath()
    {
        QCOMPARE(start(m_program, m_root + "/elsewhere").root, m_root + "/install");
    }

    void resolvesRelativeProgramPath()
    {
        QCOMPARE(start("./program", m_root + "/install/bin").root, m_root + "/install");
        QCOMPARE(start("../install/bin/program", m_root + "/elsewhere").root, m_root + "/install");
    }

    void resolvesSymbolicLinkToProgram()
    {
        const QString link = m_root + "/links/quellora";
        QVERIFY(QFile::link(m_program, link));
        touch(m_root + "/links/config.json");
        QCOMPARE(start(link, m_root + "/elsewhere").root, m_root + "/install");
    }

    void usesProgramPathForBareName()
    {
        // The same name in the working directory is a different file.
        touch(m_root + "/elsewhere/program");
        QCOMPARE(start("program", m_root + "/elsewhere", m_root + "/install/bin").root,
                 m_root + "/install");
    }

    void usesProgramPathWhenArgvZeroIsMeaningless()
    {
        // Some systems pass an empty string when the first argument is missing.
        QCOMPARE(startAs(QString(), m_root + "/elsewhere").root, m_root + "/install");
    }

    void prefersWorkingDirectory()
    {
        touch(m_root + "/elsewhere/config.json");
        QCOMPARE(start(m_program, m_root + "/elsewhere").root, m_root + "/elsewhere");
    }

    void returnsNothingWithoutConfigFile()
    {
        QVERIFY(QFile::remove(m_root + "/install/config.json"));
        QCOMPARE(start(m_program, m_root + "/elsewhere").root, "none");
    }

    void missingFirstArgumentIsFatal()
    {
        const Outcome outcome =
            run(m_program, {"project_paths", withoutArguments}, m_root + "/elsewhere", {});
        QVERIFY(outcome.crashed);
        QVERIFY2(outcome.errors.contains(
                     "The program was started without its own path as first argument"),
                 qPrintable(outcome.errors));
    }

private:
    static void touch(const QString &path)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

    static Outcome run(const QString &program, const QStringList &arguments,
                       const QString &workingFolder, const QString &path)
    {
        QProcess process;
        process.setWorkingDirectory(workingFolder);
        if (!path.isEmpty()) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("PATH", path + ":" + environment.value("PATH"));
            process.setProcessEnvironment(environment);
        }
        process.start(program, arguments);
        if (!process.waitForFinished())
            return {"did not finish: " + process.errorString(), {}, false};
        return {QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError()),
                process.exitStatus() == QProcess::CrashExit};
    }

    /// Starts the program through a shell, which passes @p name unchanged as argv[0].
    static Outcome start(const QString &name, const QString &workingFolder,
                         const QString &path = {})
    {
        return run("/bin/sh", {"-c", "exec " + name + " project_paths " + printRootOption},
                   workingFolder, path);
    }

    /// Starts the program with @p argumentZero as argv[0].
    Outcome startAs(const QString &argumentZero, const QString &workingFolder) const
    {
        return run("/bin/bash",
                   {"-c", "exec -a '" + argumentZero + "' " + m_program + " project_paths " +
                              printRootOption},
                   workingFolder, {});
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_root;
    QString m_program;
};

namespace {

int runTests(int argc, char **argv)
{
    if (argc > 1 && std::strcmp(argv[1], printRootOption) == 0)
        return printRoot(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], withoutArguments) == 0) {
        int none = 0;
        return printRoot(none, argv + argc);
    }
    QCoreApplication application(argc, argv);
    TestProjectPaths test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_project_paths.moc"
