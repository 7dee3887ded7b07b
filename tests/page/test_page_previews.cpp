#include "fakes/LogCapture.h"
#include "page/PreviewFiles.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

class TestPagePreviews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void writesOnlyWhatIsOpened();
    void foldersAreForTheUserOnly();
    void existingFileIsReused();
    void folderThatCannotBeMade();
    void folderThatIsALink();
    void fileThatCannotBeWritten();
    void goesWithItsThreadOrItsPicture();
    void leavesNothing();
    void abandonedFoldersGo();
    void foldersOfTheLivingStay();
    void foreignFilesStay();
    void aLinkInThePlaceOfTheRootIsNotFollowed();

private:
    QString root() const { return m_dir->filePath(QStringLiteral("quellora-thread-preview")); }
    QStringList everything() const
    {
        return QDir(root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                      QDir::NoDotAndDotDot);
    }
    /// A folder as a process leaves it that was killed.
    QString abandoned() const
    {
        const QString folder = root() + QStringLiteral("/process-") + uuidText(QUuid::createUuid());
        if (!QDir().mkpath(folder + QStringLiteral("/thread")))
            qFatal("The test could not make a folder");
        QFile file(folder + QStringLiteral("/thread/screenshot-0.jpg"));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("The test could not write a file");
        return folder;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    CaptureSession m_session;
};

void TestPagePreviews::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_session = CaptureSession::create();
    m_session.addScreenshot("JPEG", QDateTime::currentDateTime());
}

void TestPagePreviews::writesOnlyWhatIsOpened()
{
    PreviewFiles files(m_dir->path());
    m_session.addScreenshot("OTHER", QDateTime::currentDateTime());
    const QString path = files.pathOf(m_session.id, 0);
    QVERIFY(path.startsWith(root() + QStringLiteral("/process-")));
    QVERIFY(path.endsWith(QLatin1Char('/') + uuidText(m_session.id) +
                          QStringLiteral("/screenshot-0.jpg")));
    QVERIFY(!QFileInfo::exists(root()));
    QVERIFY(files.write(path, "JPEG"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("JPEG"));
    QVERIFY(!QFileInfo::exists(files.pathOf(m_session.id, 1)));
    // Another process, or another session of this one, has a folder of its own.
    QVERIFY(PreviewFiles(m_dir->path()).pathOf(m_session.id, 0) != path);
}

void TestPagePreviews::foldersAreForTheUserOnly()
{
    QVERIFY(QDir().mkdir(root()));
    QVERIFY(QFile::setPermissions(root(), QFile::Permissions(0x7777)));
    PreviewFiles files(m_dir->path());
    const QString path = files.pathOf(m_session.id, 0);
    QVERIFY(files.write(path, "JPEG"));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                      QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFile::permissions(root()) & others, QFile::Permissions());
    const QFileInfo thread(QFileInfo(path).path());
    QCOMPARE(QFile::permissions(thread.path()) & others, QFile::Permissions());
    QCOMPARE(QFile::permissions(thread.filePath()) & others, QFile::Permissions());
}

void TestPagePreviews::existingFileIsReused()
{
    PreviewFiles files(m_dir->path());
    const QString path = files.pathOf(m_session.id, 0);
    QVERIFY(files.write(path, "JPEG"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("other");
    file.close();
    QVERIFY(files.write(path, "JPEG"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("other"));
}

void TestPagePreviews::folderThatCannotBeMade()
{
    QFile inTheWay(root());
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    inTheWay.close();
    LogCapture log;
    PreviewFiles files(m_dir->path());
    QVERIFY(!files.write(files.pathOf(m_session.id, 0), "JPEG"));
    QCOMPARE(log.lines.size(), 1);
    QVERIFY(log.lines[0].startsWith(QStringLiteral(
        "[OverlayWindowController] ERROR: Could not create thread-preview temp dir: ")));
}

void TestPagePreviews::folderThatIsALink()
{
    const QString target = m_dir->filePath(QStringLiteral("elsewhere"));
    QVERIFY(QDir().mkdir(target));
    QVERIFY(QFile::link(target, root()));
    LogCapture log;
    PreviewFiles files(m_dir->path());
    QVERIFY(!files.write(files.pathOf(m_session.id, 0), "JPEG"));
    QCOMPARE(log.lines.size(), 1);
    QVERIFY(QDir(target).isEmpty());
}

void TestPagePreviews::fileThatCannotBeWritten()
{
    PreviewFiles files(m_dir->path());
    m_session.addScreenshot("B", QDateTime::currentDateTime());
    QVERIFY(files.write(files.pathOf(m_session.id, 0), "JPEG"));
    const QString path = files.pathOf(m_session.id, 1);
    QVERIFY(QFile::link(m_dir->filePath(QStringLiteral("missing/target")), path));
    LogCapture log;
    QVERIFY(!files.write(path, "B"));
    QCOMPARE(log.lines.size(), 1);
    QVERIFY(log.lines[0].startsWith(QStringLiteral(
        "[OverlayWindowController] ERROR: Could not write thread-preview temp file: ")));
}

void TestPagePreviews::goesWithItsThreadOrItsPicture()
{
    PreviewFiles files(m_dir->path());
    // Nothing has been written yet.
    files.removeThread(m_session.id);
    files.removeScreenshot(m_session.id, 0);
    m_session.addScreenshot("B", QDateTime::currentDateTime());
    const QUuid other = QUuid::createUuid();
    const QStringList paths{files.pathOf(m_session.id, 0), files.pathOf(m_session.id, 1),
                            files.pathOf(other, 0)};
    for (const QString &path : paths)
        QVERIFY(files.write(path, "JPEG"));
    files.removeScreenshot(m_session.id, 1);
    QVERIFY(QFile::exists(paths[0]) && !QFile::exists(paths[1]) && QFile::exists(paths[2]));
    files.removeThread(m_session.id);
    QVERIFY(!QFileInfo::exists(QFileInfo(paths[0]).path()) && QFile::exists(paths[2]));
    QVERIFY(files.write(paths[0], "JPEG"));
}

void TestPagePreviews::leavesNothing()
{
    PreviewFiles files(m_dir->path());
    files.removeAll();
    PreviewFiles other(m_dir->path());
    QVERIFY(files.write(files.pathOf(m_session.id, 0), "JPEG"));
    const QString kept = other.pathOf(m_session.id, 0);
    QVERIFY(other.write(kept, "JPEG"));
    files.removeAll();
    QCOMPARE(everything().size(), 1);
    QVERIFY(QFile::exists(kept));
    other.removeAll();
    QVERIFY(!QFileInfo::exists(root()));
    // Writing works again afterwards.
    QVERIFY(files.write(files.pathOf(m_session.id, 0), "JPEG"));
}

void TestPagePreviews::abandonedFoldersGo()
{
    PreviewFiles::removeAbandoned(m_dir->path());
    const QString one = abandoned();
    const QString two = abandoned();
    PreviewFiles::removeAbandoned(m_dir->path());
    QVERIFY(!QFileInfo::exists(one) && !QFileInfo::exists(two));
    QVERIFY(!QFileInfo::exists(root()));
}

void TestPagePreviews::foldersOfTheLivingStay()
{
    PreviewFiles living(m_dir->path());
    const QString path = living.pathOf(m_session.id, 0);
    QVERIFY(living.write(path, "JPEG"));
    const QString gone = abandoned();
    PreviewFiles::removeAbandoned(m_dir->path());
    QVERIFY(QFile::exists(path));
    QVERIFY(!QFileInfo::exists(gone));
}

void TestPagePreviews::foreignFilesStay()
{
    const QString elsewhere = m_dir->filePath(QStringLiteral("elsewhere"));
    QVERIFY(QDir().mkpath(elsewhere + QStringLiteral("/thread")));
    const QString uuid = uuidText(QUuid::createUuid());
    QVERIFY(QDir().mkpath(root() + QStringLiteral("/process-mine")));
    QVERIFY(QDir().mkpath(root() + QLatin1Char('/') + uuid));
    QVERIFY(QFile::link(elsewhere, root() + QStringLiteral("/process-") + uuid));
    QFile file(root() + QStringLiteral("/process-") + uuidText(QUuid::createUuid()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    PreviewFiles::removeAbandoned(m_dir->path());
    QCOMPARE(everything().size(), 4);
    QVERIFY(QFileInfo(elsewhere + QStringLiteral("/thread")).isDir());
}

void TestPagePreviews::aLinkInThePlaceOfTheRootIsNotFollowed()
{
    const QString elsewhere = m_dir->filePath(QStringLiteral("elsewhere"));
    const QString folder = elsewhere + QStringLiteral("/process-") + uuidText(QUuid::createUuid());
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QFile::link(elsewhere, root()));
    PreviewFiles::removeAbandoned(m_dir->path());
    QVERIFY(QFileInfo::exists(folder));
}

QUELLORA_TEST(QCoreApplication, TestPagePreviews)
#include "test_page_previews.moc"
