#include "platform/LogFile.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace quellora;

namespace {

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

unsigned mode(const QString &path)
{
    struct stat info = {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777U : 0U;
}

void write(const QString &path, const QByteArray &text)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
}

/// A file descriptor that stands in for standard output.
class Output
{
public:
    explicit Output(const char *path = "/dev/null") : m_descriptor(::open(path, O_RDWR)) {}
    ~Output() { ::close(m_descriptor); }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    int get() const { return m_descriptor; }
    void print(const QByteArray &text) const
    {
        QCOMPARE(::write(m_descriptor, text.constData(), size_t(text.size())), text.size());
    }

private:
    int m_descriptor;
};

} // namespace

class TestLogFile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_folder = m_home->filePath(QStringLiteral("Library/Logs/Vantiro"));
        m_file = m_folder + QStringLiteral("/pipeline.log");
        m_rotated = m_file + QStringLiteral(".1");
    }

    void redirectsOutputToFile()
    {
        Output output;
        {
            auto log = open();
            QVERIFY2(log, qPrintable(log ? QString() : log.error()));
            QCOMPARE(log->redirect(output.get()), QString());
        }
        output.print("one\n");
        output.print("two\n");
        QCOMPARE(contents(m_file), QByteArray("one\ntwo\n"));
        QCOMPARE(mode(m_folder), 0700U);
        QCOMPARE(mode(m_file), 0600U);
    }

    void appendsAndRestrictsPermissions()
    {
        QVERIFY(QDir().mkpath(m_folder));
        write(m_file, "before\n");
        QVERIFY(::chmod(QFile::encodeName(m_file).constData(), 0644) == 0);
        QVERIFY(::chmod(QFile::encodeName(m_folder).constData(), 0755) == 0);
        Output output;
        QCOMPARE(open()->redirect(output.get()), QString());
        output.print("after\n");
        QCOMPARE(contents(m_file), QByteArray("before\nafter\n"));
        QCOMPARE(mode(m_folder), 0700U);
        QCOMPARE(mode(m_file), 0600U);
    }

    void rotatesLargeFile()
    {
        QVERIFY(QDir().mkpath(m_folder));
        write(m_file, "12345");
        write(m_rotated, "oldest");
        QVERIFY(open(5));
        QCOMPARE(contents(m_file), QByteArray("12345"));
        QCOMPARE(contents(m_rotated), QByteArray("oldest"));
        QVERIFY(open(4));
        QCOMPARE(contents(m_file), QByteArray());
        QCOMPARE(contents(m_rotated), QByteArray("12345"));
        QCOMPARE(mode(m_file), 0600U);
    }

    void secondInstanceDoesNotRotate()
    {
        QVERIFY(QDir().mkpath(m_folder));
        write(m_file, "12345");
        {
            const auto first = open(100);
            QVERIFY(first);
            Output output;
            QCOMPARE(open(1)->redirect(output.get()), QString());
            output.print("6");
            QCOMPARE(contents(m_file), QByteArray("123456"));
            QVERIFY(!QFile::exists(m_rotated));
        }
    }

    void symlinkToFileIsRejected()
    {
        const QString linkTarget = m_home->filePath(QStringLiteral("elsewhere"));
        write(linkTarget, "mine");
        QVERIFY(QDir().mkpath(m_folder));
        QVERIFY(QFile::link(linkTarget, m_file));
        const auto log = open();
        QVERIFY(!log);
        QVERIFY2(log.error().startsWith(m_file), qPrintable(log.error()));
        QCOMPARE(contents(linkTarget), QByteArray("mine"));
    }

    void symlinkToFolderIsRejected()
    {
        const QString linkTarget = m_home->filePath(QStringLiteral("elsewhere"));
        QVERIFY(QDir().mkpath(linkTarget));
        QVERIFY(QDir().mkpath(m_home->filePath(QStringLiteral("Library/Logs"))));
        QVERIFY(QFile::link(linkTarget, m_folder));
        QVERIFY(!open());
        QVERIFY(QDir(linkTarget).isEmpty());
    }

    void nonRegularFileIsRejected()
    {
        QVERIFY(QDir().mkpath(m_folder));
        QVERIFY(::mkfifo(QFile::encodeName(m_file).constData(), 0600) == 0);
        QVERIFY(!open());
        QVERIFY(QFile::remove(m_file));
        QVERIFY(QDir().mkpath(m_file));
        QVERIFY(!open());
    }

    void folderCreationFailureIsReported()
    {
        write(m_home->filePath(QStringLiteral("Library")), "a file");
        const auto log = open();
        QVERIFY(!log);
        QVERIFY2(log.error().contains(QStringLiteral("Library")), qPrintable(log.error()));
    }

    void emptyOrRelativeHomeIsRejected()
    {
        QVERIFY(!LogFile::open({}));
        QVERIFY(!LogFile::open("relative"));
    }

    void redirectsDiscardedOutput()
    {
        const Output output;
        QCOMPARE(LogFile::redirectIfDiscarded(output.get(), home()), QString());
        output.print("kept\n");
        QCOMPARE(contents(m_file), QByteArray("kept\n"));
        // The output is no longer discarded, so it is not redirected again.
        QVERIFY(QFile::remove(m_file));
        QCOMPARE(LogFile::redirectIfDiscarded(output.get(), home()), QString());
        QVERIFY(!QFile::exists(m_file));
    }

    void redirectsClosedDescriptorAndHoldsLock()
    {
        const int closed = ::open("/dev/null", O_RDWR);
        ::close(closed);
        QCOMPARE(LogFile::redirectIfDiscarded(closed, home()), QString());
        QCOMPARE(::write(closed, "kept", 4), 4);
        QVERIFY(open(1));
        QCOMPARE(contents(m_file), QByteArray("kept"));
        ::close(closed);
    }

    void capturedOutputIsNotRedirected()
    {
        const Output zero("/dev/zero");
        QCOMPARE(LogFile::redirectIfDiscarded(zero.get(), home()), QString());
        QVERIFY(!QFile::exists(m_folder));
    }

    void failedRedirectionLeavesOutputUnchanged()
    {
        write(m_home->filePath(QStringLiteral("Library")), "a file");
        const Output output;
        QVERIFY(!LogFile::redirectIfDiscarded(output.get(), home()).isEmpty());
        QVERIFY(LogFile::isDiscarded(output.get()));
    }

    void nullDeviceAndClosedDescriptorAreDiscarded()
    {
        QVERIFY(LogFile::isDiscarded(Output().get()));
        const Output zero("/dev/zero");
        QVERIFY(!LogFile::isDiscarded(zero.get()));
        int pipe[2];
        QVERIFY(::pipe(pipe) == 0);
        QVERIFY(!LogFile::isDiscarded(pipe[1]));
        ::close(pipe[0]);
        ::close(pipe[1]);
        QVERIFY(LogFile::isDiscarded(pipe[1]));
    }

private:
    tl::expected<LogFile, QString> open(qint64 largest = LogFile::largest) const
    {
        return LogFile::open(home(), largest);
    }
    QByteArray home() const { return QFile::encodeName(m_home->path()); }

    std::unique_ptr<QTemporaryDir> m_home;
    QString m_folder;
    QString m_file;
    QString m_rotated;
};

QUELLORA_TEST(void, TestLogFile)
#include "test_log_file.moc"
