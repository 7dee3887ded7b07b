// Unexpected entries in place of a thread's files.

#include "history/StoreFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <sys/stat.h>

using namespace quellora;

namespace {

using Kind = StoreError::Kind;

QString imageOf(const StoreFixture &f, const CaptureSession &session, int index)
{
    return f.folder(session.id) + '/' + CaptureSessionStore::screenshotFileName(index);
}

QStringList sampleFiles()
{
    return {"screenshot-0.png", "screenshot-1.png", "session.json"};
}

} // namespace

class TestThreadStorePlaces : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void filesAndFoldersArePrivate()
    {
        // Independently of the umask.
        const mode_t mask = ::umask(0);
        StoreFixture f;
        const CaptureSession session = keptSample();
        const auto saved = f.store.save(session);
        const auto renamed = f.store.updateTitle(session.id, "T");
        ::umask(mask);
        QVERIFY(saved && renamed);
        for (const QString &name : sampleFiles())
            QCOMPARE(modeOf(f.folder(session.id) + '/' + name), 0600);
        for (const QString &folder : {f.folder(session.id), f.support.filePath("Quellora/sessions"),
                                      f.support.filePath("Quellora")})
            QCOMPARE(modeOf(folder), 0700);
    }

    void missingParentsAreCreated()
    {
        QTemporaryDir support;
        const CaptureSessionStore store(support.filePath("home/.local/share"));
        const auto root = store.sessionsRoot();
        QVERIFY(root);
        QCOMPARE(*root, support.filePath("home/.local/share/Quellora/sessions"));
        QVERIFY(QFileInfo(*root).isDir());
        QCOMPARE(modeOf(support.filePath("home")), 0700);
    }

    void existingFoldersKeepTheirMode()
    {
        StoreFixture f;
        const QString root = f.support.filePath("Quellora/sessions");
        QVERIFY(QDir().mkpath(root));
        QCOMPARE(::chmod(QFile::encodeName(root).constData(), 0750), 0);
        QVERIFY(f.store.save(keptSample()));
        QCOMPARE(modeOf(root), 0750);
    }

    void nextSaveRemovesTemporaryFiles()
    {
        StoreFixture f;
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        const QString folder = f.folder(session.id) + '/';
        for (const char *name :
             {"session.json.saving", "session.json.saving.AbCdEf", "screenshot-0.png.saving.XyZabc",
              "screenshot-12.png.saving", "screenshot-12.png.saving.aaaaaa"})
            writeFile(folder + name, "half");
        // Files with other names stay.
        const QStringList others{"notes.txt.saving", "session.json.backup", "session.json.saving.a",
                                 "session.json.savings", "xsession.json.saving"};
        for (const QString &name : others)
            writeFile(folder + name, "theirs");
        QVERIFY(QDir().mkdir(folder + "screenshot-7.png.saving"));

        session.addTurn("q", "r", t0, t0);
        QVERIFY(f.store.save(session));
        QStringList expected = sampleFiles() + others + QStringList{"screenshot-7.png.saving"};
        QStringList found = f.names(session.id);
        expected.sort();
        found.sort();
        QCOMPARE(found, expected);
        QCOMPARE(*f.store.load(session.id), asStored(session));
    }

    void truncatedImagesAreRewritten_data()
    {
        QTest::addColumn<QByteArray>("found");
        QTest::addColumn<bool>("isRewritten");
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("one byte") << QByteArray("j") << true;
        QTest::newRow("all but one byte") << QByteArray("jpeg-") << true;
        QTest::newRow("complete") << QByteArray("jpeg-0") << false;
        QTest::newRow("different, shorter") << QByteArray("gif") << false;
        QTest::newRow("different, same size") << QByteArray("jpeg-9") << false;
        QTest::newRow("longer") << QByteArray("jpeg-0 and more") << false;
    }
    void truncatedImagesAreRewritten()
    {
        QFETCH(QByteArray, found);
        QFETCH(bool, isRewritten);
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(QDir().mkpath(f.folder(session.id)));
        const QString image = imageOf(f, session, 0);
        writeFile(image, found);
        const auto inode = inodeOf(image);
        QVERIFY(f.store.save(session));
        QCOMPARE(contentOf(image), isRewritten ? QByteArray("jpeg-0") : found);
        QCOMPARE(inodeOf(image) != inode, isRewritten);
    }

    void fileInPlaceOfFolder()
    {
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(f.store.sessionsRoot());
        writeFile(f.folder(session.id), "in the way");
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, Kind::File);
        QCOMPARE(saved.error().description(),
                 f.folder(session.id) + ": something else is in the place of the folder");
        QCOMPARE(contentOf(f.folder(session.id)), "in the way");
        QCOMPARE(f.store.load(session.id).error().kind, Kind::SessionNotFound);
        QCOMPARE(f.store.updateTitle(session.id, "T").error().kind, Kind::SessionNotFound);
        // list() returns it, so it must be removable.
        QVERIFY(f.store.remove(session.id));
        QVERIFY(!QFileInfo::exists(f.folder(session.id)));
        QVERIFY(f.store.save(session));
    }

    void foldersInPlaceOfFiles()
    {
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(QDir().mkpath(imageOf(f, session, 1)));
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, Kind::File);
        QVERIFY(saved.error().description().startsWith(imageOf(f, session, 1) + ": "));
        QVERIFY(QDir().rmdir(imageOf(f, session, 1)));

        QVERIFY(QDir().mkpath(f.description(session.id)));
        QCOMPARE(f.store.save(session).error().kind, Kind::File);
        QCOMPARE(f.store.load(session.id).error().kind, Kind::File);
        QVERIFY(f.store.load(session.id).error().description().endsWith("not a regular file"));
        QVERIFY(QDir().rmdir(f.description(session.id)));
        QVERIFY(f.store.save(session));
        QVERIFY(QFile::remove(imageOf(f, session, 0)));
        QVERIFY(QDir().mkpath(imageOf(f, session, 0)));
        QCOMPARE(f.store.load(session.id).error().description(),
                 "Session " + uuidText(session.id) + " is missing screenshot-0.png");
    }

    void linksAreReplacedNotFollowed()
    {
        StoreFixture f;
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        const QString document = f.support.filePath("document");
        writeFile(document, "the user's own");
        for (const QString &path : {imageOf(f, session, 0), f.description(session.id)}) {
            QVERIFY(QFile::remove(path));
            QVERIFY(QFile::link(document, path));
        }
        QVERIFY(QFile::remove(imageOf(f, session, 1)));
        QVERIFY(QFile::link(f.support.filePath("nowhere"), imageOf(f, session, 1)));
        QCOMPARE(f.store.load(session.id).error().kind, Kind::File);

        QVERIFY(f.store.save(session));
        QCOMPARE(contentOf(document), "the user's own");
        QVERIFY(!QFileInfo::exists(f.support.filePath("nowhere")));
        QCOMPARE(*f.store.load(session.id), asStored(session));
        QCOMPARE(f.names(session.id), sampleFiles());
        for (const QString &name : sampleFiles())
            QCOMPARE(modeOf(f.folder(session.id) + '/' + name), 0600);
    }

    void linkedImageIsRejected()
    {
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        QVERIFY(QFile::remove(imageOf(f, session, 1)));
        QVERIFY(QFile::link("/etc/passwd", imageOf(f, session, 1)));
        QCOMPARE(f.store.load(session.id).error().description(),
                 "Session " + uuidText(session.id) + " is missing screenshot-1.png");
    }

    void pipesDoNotBlock()
    {
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        for (const QString &path : {imageOf(f, session, 0), f.description(session.id)}) {
            QVERIFY(QFile::remove(path));
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        }
        QCOMPARE(f.store.load(session.id).error().kind, Kind::File);
        QCOMPARE(f.store.updateTitle(session.id, "T").error().kind, Kind::File);
        QVERIFY(f.store.save(session));
        QCOMPARE(*f.store.load(session.id), asStored(session));
    }

    void linkedFolderWorks()
    {
        // A symbolic link to a folder, e.g. on another disk, works; removing deletes only the link.
        StoreFixture f;
        const CaptureSession session = keptSample();
        const QString elsewhere = f.support.filePath("elsewhere");
        QVERIFY(QDir().mkpath(elsewhere) && f.store.sessionsRoot());
        QVERIFY(QFile::link(elsewhere, f.folder(session.id)));
        QVERIFY(f.store.save(session));
        QCOMPARE(*f.store.load(session.id), asStored(session));
        QVERIFY(f.store.remove(session.id));
        QVERIFY(!QFileInfo(f.folder(session.id)).isSymLink());
        QVERIFY(QFileInfo::exists(elsewhere + "/session.json"));
    }

    void removeDoesNotFollowLinks()
    {
        StoreFixture f;
        const CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        const QString linkTarget = f.support.filePath("linkTarget");
        QVERIFY(QDir().mkpath(linkTarget));
        writeFile(linkTarget + "/file", "x");
        QVERIFY(QFile::link(linkTarget, f.folder(session.id) + "/link"));
        QVERIFY(QDir().mkpath(f.folder(session.id) + "/more/inside"));
        writeFile(f.folder(session.id) + "/.hidden", "x");
        QVERIFY(f.store.remove(session.id));
        QVERIFY(!QFileInfo::exists(f.folder(session.id)));
        QCOMPARE(contentOf(linkTarget + "/file"), "x");
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadStorePlaces)
#include "test_thread_store_places.moc"
