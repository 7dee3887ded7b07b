#include "fakes/LogCapture.h"
#include "overlay/page/PreviewFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

class TestPagePreviews : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void writesOncePerScreenshot();
    void foldersAreForTheUserOnly();
    void existingFileIsReused();
    void folderThatCannotBeMade();
    void folderThatIsALink();
    void fileThatCannotBeWritten();
    void remembersPaths();

private:
    QString root() const { return m_dir->filePath(QStringLiteral("quellora-thread-preview")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    CaptureSession m_session;
};

void TestPagePreviews::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_session = CaptureSession::create();
    m_session.addScreenshot("JPEG", QDateTime::currentDateTime());
}

void TestPagePreviews::writesOncePerScreenshot()
{
    const PreviewFiles files(m_dir->path());
    const auto path = files.tempFileURL(m_session.screenshots[0], m_session);
    QVERIFY(path);
    QCOMPARE(*path, root() + QLatin1Char('/') + uuidText(m_session.id) +
                        QStringLiteral("/screenshot-0.jpg"));
    QFile file(*path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("JPEG"));
}

void TestPagePreviews::foldersAreForTheUserOnly()
{
    QVERIFY(QDir().mkdir(root()));
    QVERIFY(QFile::setPermissions(root(), QFile::Permissions(0x7777)));
    const PreviewFiles files(m_dir->path());
    const auto path = files.tempFileURL(m_session.screenshots[0], m_session);
    QVERIFY(path);
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                      QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFile::permissions(root()) & others, QFile::Permissions());
    QCOMPARE(QFile::permissions(QFileInfo(*path).path()) & others, QFile::Permissions());
}

void TestPagePreviews::existingFileIsReused()
{
    const PreviewFiles files(m_dir->path());
    const auto path = files.tempFileURL(m_session.screenshots[0], m_session);
    QFile file(*path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("other");
    file.close();
    QCOMPARE(files.tempFileURL(m_session.screenshots[0], m_session), path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("other"));
}

void TestPagePreviews::folderThatCannotBeMade()
{
    QFile inTheWay(root());
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    inTheWay.close();
    LogCapture log;
    QVERIFY(!PreviewFiles(m_dir->path()).tempFileURL(m_session.screenshots[0], m_session));
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
    QVERIFY(!PreviewFiles(m_dir->path()).tempFileURL(m_session.screenshots[0], m_session));
    QCOMPARE(log.lines.size(), 1);
    QVERIFY(QDir(target).isEmpty());
}

void TestPagePreviews::fileThatCannotBeWritten()
{
    // A folder stands where the file's own temporary name goes: nothing can be renamed over it.
    const PreviewFiles files(m_dir->path());
    CaptureSession::Screenshot second{1, "B", QDateTime::currentDateTime()};
    QVERIFY(files.tempFileURL(m_session.screenshots[0], m_session));
    const QString folder = root() + QLatin1Char('/') + uuidText(m_session.id);
    QVERIFY(QFile::link(m_dir->filePath(QStringLiteral("missing/target")),
                        folder + QStringLiteral("/screenshot-1.jpg")));
    LogCapture log;
    QVERIFY(!files.tempFileURL(second, m_session));
    QCOMPARE(log.lines.size(), 1);
    QVERIFY(log.lines[0].startsWith(QStringLiteral(
        "[OverlayWindowController] ERROR: Could not write thread-preview temp file: ")));
}

void TestPagePreviews::remembersPaths()
{
    PreviewFiles files(m_dir->path());
    files.remember({QStringLiteral("/a")});
    files.remember({QStringLiteral("/b")});
    QVERIFY(files.isKnown(QStringLiteral("/a")));
    QVERIFY(files.isKnown(QStringLiteral("/b")));
    QVERIFY(!files.isKnown(QStringLiteral("/c")));
}

QTEST_GUILESS_MAIN(TestPagePreviews)
#include "test_page_previews.moc"
