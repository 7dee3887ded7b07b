#include "screencapture/AtomicFile.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>

using namespace quellora::screencapture;

namespace {

std::span<const std::byte> bytesOf(const QByteArray &text)
{
    return std::as_bytes(std::span(text.data(), static_cast<std::size_t>(text.size())));
}

} // namespace

class FileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QVERIFY(m_folder.isValid()); }

    void cleanup()
    {
        for (const QString &name : fileNames())
            QVERIFY(QFile::remove(m_folder.filePath(name)));
    }

    void commitCreatesPrivateFile()
    {
        auto file = AtomicFile::create(path());
        QVERIFY(file);
        QVERIFY(file->write(bytesOf("first ")));
        QVERIFY(file->write(bytesOf("second")));
        QVERIFY(!fileNames().contains("picture.png"));
        QVERIFY(file->commit());
        QCOMPARE(fileNames(), QStringList{"picture.png"});
        QCOMPARE(contents(), QByteArray("first second"));
        QCOMPARE(QFile::permissions(m_folder.filePath("picture.png")) &
                     (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther |
                      QFile::ExeOwner),
                 QFile::Permissions());
    }

    void uncommittedFileIsRemoved()
    {
        {
            auto file = AtomicFile::create(path());
            QVERIFY(file);
            QVERIFY(file->write(bytesOf("half")));
        }
        QCOMPARE(fileNames(), QStringList());
    }

    void commitReplacesExistingFile()
    {
        QFile old(m_folder.filePath("picture.png"));
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("old contents");
        old.close();
        auto file = AtomicFile::create(path());
        QVERIFY(file);
        QVERIFY(file->write(bytesOf("new")));
        QCOMPARE(contents(), QByteArray("old contents"));
        QVERIFY(file->commit());
        QCOMPARE(contents(), QByteArray("new"));
        QCOMPARE(fileNames(), QStringList{"picture.png"});
    }

    void rejectsInvalidTargets()
    {
        for (const char *target : {"/", "/no/such/folder/x.png"}) {
            const auto file = AtomicFile::create(target);
            QVERIFY(!file);
            QCOMPARE(file.error().status, ExitStatus::PathUnwritable);
            QVERIFY(file.error().message.find(target) != std::string::npos);
        }
        QVERIFY(!AtomicFile::create(m_folder.path().toStdString()));
        QCOMPARE(mkfifo(path().c_str(), 0600), 0);
        QVERIFY(!AtomicFile::create(path()));
        QCOMPARE(std::remove(path().c_str()), 0);
        QVERIFY(!AtomicFile::create(m_folder.path().toStdString() + "/"));
    }

    void commitFailsIfFolderWasRemoved()
    {
        QVERIFY(QDir(m_folder.path()).mkdir("inner"));
        auto file = AtomicFile::create(m_folder.path().toStdString() + "/inner/picture.png");
        QVERIFY(file);
        QVERIFY(QDir(m_folder.filePath("inner")).removeRecursively());
        const auto result = file->commit();
        QVERIFY(!result);
        QCOMPARE(result.error().status, ExitStatus::PathUnwritable);
    }

    void mapsErrnoToExitStatus()
    {
        for (const int errorNumber : {ENOSPC, EDQUOT, EFBIG})
            QCOMPARE(fileFailure("/a", errorNumber).status, ExitStatus::DiskFull);
        for (const int errorNumber : {EACCES, EROFS, ENOENT, EIO, ENAMETOOLONG})
            QCOMPARE(fileFailure("/a", errorNumber).status, ExitStatus::PathUnwritable);
    }

private:
    std::string path() const { return m_folder.filePath("picture.png").toStdString(); }
    QStringList fileNames() const
    {
        return QDir(m_folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    QByteArray contents() const
    {
        QFile file(m_folder.filePath("picture.png"));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir m_folder;
};

QUELLORA_TEST(void, FileTest)
#include "test_file.moc"
