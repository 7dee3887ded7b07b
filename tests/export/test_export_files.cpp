#include "ExportFixture.h"
#include "export/ExportFiles.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace quellora;

namespace {

using Kind = ExportFailure::Kind;
using Existing = ExportFiles::Existing;

/// A disk that fills up: writing fails once this many bytes have been written.
class FullDisk : public DiskThreadFiles
{
public:
    explicit FullDisk(qsizetype room) : m_room(room) {}
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        return std::make_unique<File>(DiskThreadFiles::replacement(path), m_room);
    }

private:
    class File : public FileReplacement
    {
    public:
        File(std::unique_ptr<FileReplacement> file, qsizetype &room)
            : m_file(std::move(file)), m_room(room)
        {}
        Result open() override { return m_file->open(); }
        Result write(const QByteArray &content) override
        {
            if (content.size() > m_room)
                return tl::unexpected(QStringLiteral("No space left on device"));
            m_room -= content.size();
            return m_file->write(content);
        }
        Result commit() override { return m_file->commit(); }

    private:
        std::unique_ptr<FileReplacement> m_file;
        qsizetype &m_room;
    };

    qsizetype m_room;
};

QByteArray listOf(const QHash<qint64, QString> &addresses)
{
    QStringList list;
    for (qint64 i = 0; i < 10; ++i) {
        if (addresses.contains(i))
            list.append(addresses[i]);
    }
    return list.join(QLatin1Char(' ')).toUtf8();
}

} // namespace

class TestExportFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_path = m_dir->filePath(QStringLiteral("My thread.md"));
    }

    void writesOneFile()
    {
        QVERIFY(m_files.write(m_path, Existing::Keep, "text"));
        QCOMPARE(contentOf(m_path), QByteArray("text"));
        QCOMPARE(namesIn(m_dir->path()), QStringList{QStringLiteral("My thread.md")});
    }

    void keepsWhatIsThere()
    {
        writeFile(m_path, "old");
        for (const auto &result : {ExportFiles::check(m_path, Existing::Keep),
                                   m_files.write(m_path, Existing::Keep, "new")}) {
            QVERIFY(!result);
            QCOMPARE(result.error().kind, Kind::Exists);
            QCOMPARE(result.error().text, QStringLiteral("\"My thread.md\" is there already"));
        }
        QCOMPARE(contentOf(m_path), QByteArray("old"));
        QVERIFY(m_files.write(m_path, Existing::Replace, "new"));
        QCOMPARE(contentOf(m_path), QByteArray("new"));
    }

    void linkThatLeadsNowhereIsThere()
    {
        QVERIFY(QFile::link(m_dir->filePath(QStringLiteral("gone")), m_path));
        QCOMPARE(m_files.write(m_path, Existing::Keep, "x").error().kind, Kind::Exists);
        QVERIFY(!QFileInfo::exists(m_dir->filePath(QStringLiteral("gone"))));
    }

    void refusesWhatIsNoFile()
    {
        const auto textOf = [this](const QString &path) {
            const auto result = m_files.write(path, Existing::Replace, "x");
            return result ? QStringLiteral("done") : result.error().text;
        };
        QCOMPARE(textOf(m_dir->path()), QStringLiteral("\"%1\" can't be written: it is a folder")
                                            .arg(QFileInfo(m_dir->path()).fileName()));
        QCOMPARE(textOf(m_dir->filePath(QStringLiteral("none/x.md"))),
                 QStringLiteral("\"x.md\" can't be written: the folder \"%1\" is not there")
                     .arg(m_dir->filePath(QStringLiteral("none"))));
        writeFile(m_path, "");
        QCOMPARE(textOf(m_path + QStringLiteral("/x.md")),
                 QStringLiteral("\"x.md\" can't be written: \"%1\" is not a folder").arg(m_path));
        const QString pipe = m_dir->filePath(QStringLiteral("pipe"));
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QCOMPARE(textOf(pipe),
                 QStringLiteral("\"pipe\" can't be written: it is not a regular file"));
    }

    void saysThatItMayNot()
    {
        QVERIFY(QFile::setPermissions(m_dir->path(), QFile::ReadOwner | QFile::ExeOwner |
                                                         QFile::ReadOther | QFile::ExeOther));
        // Root may write everywhere.
        constexpr uid_t nobody = 65534;
        const bool isRoot = ::geteuid() == 0;
        QVERIFY(!isRoot || ::seteuid(nobody) == 0);
        const auto result = m_files.write(m_path, Existing::Keep, "x");
        QVERIFY(!isRoot || ::seteuid(0) == 0);
        QVERIFY(QFile::setPermissions(m_dir->path(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!result);
        QCOMPARE(result.error().text,
                 QStringLiteral("\"My thread.md\" can't be written: Permission denied"));
    }

    void fullDiskLeavesNothingNew()
    {
        FullDisk disk(10);
        const ExportFiles files(disk);
        const auto result = files.write(m_path, Existing::Keep, QByteArray(11, 'x'));
        QVERIFY(!result);
        QCOMPARE(result.error().kind, Kind::Write);
        QCOMPARE(result.error().text,
                 QStringLiteral("\"My thread.md\" can't be written: No space left on device"));
        QCOMPARE(namesIn(m_dir->path()), QStringList());

        writeFile(m_path, "old");
        QVERIFY(!files.write(m_path, Existing::Replace, QByteArray(11, 'x')));
        QCOMPARE(contentOf(m_path), QByteArray("old"));
        QCOMPARE(namesIn(m_dir->path()), QStringList{QStringLiteral("My thread.md")});
    }

    void picturesLieBeside()
    {
        QVERIFY(m_files.writeWithPictures(m_path, Existing::Keep,
                                          {{0, "\xff\xd8jpeg"}, {4, "\x89PNG..."}}, listOf));
        QCOMPARE(contentOf(m_path), QByteArray("My%20thread-pictures/screenshot-1.jpg "
                                               "My%20thread-pictures/screenshot-5.png"));
        QCOMPARE(contentOf(m_dir->filePath(QStringLiteral("My thread-pictures/screenshot-1.jpg"))),
                 QByteArray("\xff\xd8jpeg"));
        QCOMPARE(contentOf(m_dir->filePath(QStringLiteral("My thread-pictures/screenshot-5.png"))),
                 QByteArray("\x89PNG..."));
    }

    void noPicturesNoFolder()
    {
        QVERIFY(m_files.writeWithPictures(m_path, Existing::Keep, {}, listOf));
        QCOMPARE(namesIn(m_dir->path()), QStringList{QStringLiteral("My thread.md")});
    }

    void picturesReplaceNothing()
    {
        QVERIFY(m_dir->path().size() > 0);
        const QString folder = m_dir->filePath(QStringLiteral("My thread-pictures"));
        QVERIFY(QDir().mkpath(folder));
        writeFile(folder + QStringLiteral("/screenshot-1.jpg"), "mine");
        writeFile(folder + QStringLiteral("/screenshot-2.jpg"), "same");
        QVERIFY(
            m_files.writeWithPictures(m_path, Existing::Keep, {{0, "new"}, {1, "same"}}, listOf));
        QCOMPARE(contentOf(m_path), QByteArray("My%20thread-pictures/screenshot-1-2.jpg "
                                               "My%20thread-pictures/screenshot-2.jpg"));
        QCOMPARE(contentOf(folder + QStringLiteral("/screenshot-1.jpg")), QByteArray("mine"));
        QCOMPARE(namesIn(folder).size(), 3);

        // The same export again adds nothing.
        QVERIFY(m_files.writeWithPictures(m_path, Existing::Replace, {{0, "new"}, {1, "same"}},
                                          listOf));
        QCOMPARE(namesIn(folder).size(), 3);
    }

    void folderOfThatNameMayBeAFile()
    {
        writeFile(m_dir->filePath(QStringLiteral("My thread-pictures")), "mine");
        QVERIFY(m_files.writeWithPictures(m_path, Existing::Keep, {{0, "new"}}, listOf));
        QCOMPARE(contentOf(m_path), QByteArray("My%20thread-pictures-2/screenshot-1.jpg"));
        QCOMPARE(contentOf(m_dir->filePath(QStringLiteral("My thread-pictures"))),
                 QByteArray("mine"));
    }

    void failureTakesPicturesBack_data()
    {
        QTest::addColumn<qsizetype>("room");
        QTest::newRow("first picture") << qsizetype(3);
        QTest::newRow("second picture") << qsizetype(8);
        QTest::newRow("text") << qsizetype(11);
    }
    void failureTakesPicturesBack()
    {
        QFETCH(qsizetype, room);
        FullDisk disk(room);
        const auto result = ExportFiles(disk).writeWithPictures(
            m_path, Existing::Keep, {{0, "12345"}, {1, "67890"}}, listOf);
        QVERIFY(!result);
        QVERIFY(result.error().text.endsWith(QStringLiteral("No space left on device")));
        QCOMPARE(namesIn(m_dir->path()), QStringList());
    }

    void failureKeepsOthersPictures()
    {
        const QString folder = m_dir->filePath(QStringLiteral("My thread-pictures"));
        QVERIFY(QDir().mkpath(folder));
        writeFile(folder + QStringLiteral("/screenshot-1.jpg"), "12345");
        FullDisk disk(6);
        QVERIFY(!ExportFiles(disk).writeWithPictures(m_path, Existing::Keep,
                                                     {{0, "12345"}, {1, "67890"}}, listOf));
        QCOMPARE(namesIn(folder), QStringList{QStringLiteral("screenshot-1.jpg")});
    }

    void pictureEndings()
    {
        QCOMPARE(ExportFiles::pictureSuffix("\xff\xd8\xff"), QStringLiteral("jpg"));
        QCOMPARE(ExportFiles::pictureSuffix("\x89PNG\r\n"), QStringLiteral("png"));
        QCOMPARE(ExportFiles::pictureSuffix("RIFF....WEBPVP8"), QStringLiteral("webp"));
        QCOMPARE(ExportFiles::pictureSuffix(""), QStringLiteral("jpg"));
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
    DiskThreadFiles m_disk;
    const ExportFiles m_files{m_disk};
};

QUELLORA_TEST(QCoreApplication, TestExportFiles)
#include "test_export_files.moc"
