#include "fakes/LogCapture.h"
#include "platform/linux/FakePortal.h"
#include "platform/linux/FakeVeil.h"
#include "platform/linux/PortalScreenSource.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QUrl>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

using namespace quellora;

using Access = ScreenSource::Access;
using Kind = ScreenSource::Failure::Kind;
using StoredAnswers = QMap<QString, QStringList>;
Q_DECLARE_METATYPE(StoredAnswers)

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString storeService = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
const QString storePath = QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");

/// The portal's screenshots; answers when the test says so.
class FakeScreenshots : public BusService
{
public:
    explicit FakeScreenshots(const QString &address)
        : BusService(address, portalService, portalPath)
    {}
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() == QStringLiteral("Get")) {
            connection.send(message.createReply(
                QVariant::fromValue(QDBusVariant(QVariant::fromValue(version)))));
            return true;
        }
        if (message.member() != QStringLiteral("Screenshot"))
            return false;
        if (!refusal.isEmpty()) {
            connection.send(message.createErrorReply(QDBusError::UnknownMethod, refusal));
            return true;
        }
        options << qdbus_cast<QVariantMap>(message.arguments().value(1));
        const QString sender = message.service().mid(1).replace(u'.', u'_');
        handles << portalPath +
                       QStringLiteral("/request/%1/%2")
                           .arg(sender,
                                options.last().value(QStringLiteral("handle_token")).toString());
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(handles.last()))));
        return true;
    }
    bool respond(uint code, const QVariantMap &results = {}, qsizetype index = -1)
    {
        return emitSignal(index < 0 ? handles.last() : handles.at(index),
                          QStringLiteral("org.freedesktop.portal.Request"),
                          QStringLiteral("Response"), {code, results});
    }

    uint version = 2;
    QString refusal;
    QList<QVariantMap> options;
    QStringList handles;
};

/// The desktop's permission store.
class FakeStore : public BusService
{
public:
    explicit FakeStore(const QString &address) : BusService(address, storeService, storePath) {}
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("Lookup"))
            return false;
        ++lookups;
        connection.send(
            answers.isEmpty()
                ? message.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                                           QStringLiteral("nothing"))
                : message.createReply({QVariant::fromValue(answers), data()}));
        return true;
    }
    bool change(const StoredAnswers &newAnswers, bool isDeleted = false,
                const QString &id = QStringLiteral("screenshot"))
    {
        answers = newAnswers;
        return emitSignal(
            storePath, storeService, QStringLiteral("Changed"),
            {QStringLiteral("screenshot"), id, isDeleted, data(), QVariant::fromValue(newAnswers)});
    }

    StoredAnswers answers;
    int lookups = 0;

private:
    static QVariant data() { return QVariant::fromValue(QDBusVariant(QVariant(false))); }
};

} // namespace

/// Uses a private session bus with a fake portal and a fake permission store.
class PortalScreenSourceTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        qDBusRegisterMetaType<StoredAnswers>();
        QVERIFY(m_bus.start());
        QVERIFY(m_folder.isValid());
    }
    void init()
    {
        m_portal = std::make_unique<FakeScreenshots>(m_bus.address());
        m_store = std::make_unique<FakeStore>(m_bus.address());
        QVERIFY(m_portal->isServing() && m_store->isServing());
        m_veil = std::make_unique<FakeVeil>();
        m_layout = {};
        m_limits = {};
        makeSource();
        m_log.clear();
    }
    void cleanup()
    {
        m_source.reset();
        m_veil.reset();
        m_store.reset();
        m_portal.reset();
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        for (const QString &name : files())
            QFile::remove(m_folder.filePath(name));
    }

    void pictureIsTakenWithoutPanel()
    {
        m_veil->isCoveredAtOnce = false;
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_VERIFY(m_veil->isGone());
        QCoreApplication::processEvents();
        // Not before the panel is gone.
        QCOMPARE(m_portal->handles.size(), 0);
        m_veil->finish();
        QTRY_COMPARE(m_portal->handles.size(), 1);
        QCOMPARE(m_portal->options.last().value(QStringLiteral("interactive")), false);
        QVERIFY(m_veil->isGone());
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(20, 10))}}));
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        QVERIFY(future.result().has_value());
        QCOMPARE(future.result()->size(), QSize(20, 10));
        QCOMPARE(QColor(future.result()->pixel(3, 3)), QColor(Qt::green));
        QVERIFY(files().isEmpty());
        QVERIFY(m_log.lines.isEmpty());
        QCOMPARE(m_source->access(), Access::Granted);
    }

    void hiddenPanelNeedsNoCover()
    {
        m_veil->isVisible = false;
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        QCOMPARE(m_veil->covers, 0);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(4, 4))}}));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(m_veil->uncovers, 0);
    }

    void panelShownDuringPictureIsCovered()
    {
        m_veil->isVisible = false;
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        m_veil->panelShown();
        QVERIFY(m_veil->isGone());
        QVERIFY(m_portal->respond(2));
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
    }

    void oneScreenIsCutOut()
    {
        m_layout = {{QRect(0, 0, 100, 80), QRect(100, 0, 60, 40)}, 1};
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(320, 160))}}));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result()->size(), QSize(120, 80));
    }

    void windowsAreUnavailable()
    {
        const auto future = m_source->take(ScreenSource::Area::FrontWindow);
        QVERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, ScreenSource::Failure::Kind::Unavailable);
        QVERIFY(future.result().error().reason.contains(QStringLiteral("Capture a region")));
        QVERIFY(!m_veil->isGone());
    }

    void severalAtOnce()
    {
        const auto first = m_source->take(ScreenSource::Area::AllScreens);
        const auto second = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 2);
        QCOMPARE(m_veil->covers, 1);
        QVERIFY(m_portal->respond(
            0, {{QStringLiteral("uri"), writePicture(QSize(2, 2), QStringLiteral("b"))}}, 1));
        QTRY_VERIFY(second.isFinished());
        QVERIFY(m_veil->isGone());
        QVERIFY(m_portal->respond(
            0, {{QStringLiteral("uri"), writePicture(QSize(3, 3), QStringLiteral("a"))}}, 0));
        QTRY_VERIFY(first.isFinished());
        QVERIFY(!m_veil->isGone());
        QCOMPARE(first.result()->size(), QSize(3, 3));
        QCOMPARE(second.result()->size(), QSize(2, 2));
    }

    void failures_data()
    {
        QTest::addColumn<uint>("code");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("text");
        QTest::newRow("declined") << 1U << QString() << Kind::Refused
                                  << QStringLiteral("does not permit");
        QTest::newRow("declined earlier") << 2U << QStringLiteral("no") << Kind::Refused
                                          << QStringLiteral("DeletePermission sss screenshot "
                                                            "screenshot ''");
        QTest::newRow("failed") << 2U << QStringLiteral("yes") << Kind::Failed
                                << QStringLiteral("has not taken a picture");
        QTest::newRow("failed for an unknown reason")
            << 2U << QString() << Kind::Failed << QStringLiteral("has not taken a picture");
    }
    void failures()
    {
        QFETCH(uint, code);
        QFETCH(QString, stored);
        QFETCH(Kind, kind);
        QFETCH(QString, text);
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        if (!stored.isEmpty())
            m_store->answers = {{QString(), {stored}}};
        QVERIFY(m_portal->respond(code));
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        QVERIFY(!future.result().has_value());
        QCOMPARE(future.result().error().kind, kind);
        QVERIFY2(future.result().error().reason.contains(text),
                 qPrintable(future.result().error().reason));
        QCOMPARE(m_source->access() == Access::Refused, kind == Kind::Refused);
    }

    void missingPortalIsUnavailable()
    {
        m_portal->version = 0;
        m_portal->refusal = QStringLiteral("no such interface");
        makeSource();
        QTRY_COMPARE(m_source->access(), Access::Unavailable);
        QVERIFY(m_source->advice().contains(QStringLiteral("xdg-desktop-portal")));
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Unavailable);
        QVERIFY(!m_veil->isGone());
    }

    void missingBusIsUnavailable_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("none") << QString();
        QTest::newRow("unreachable") << QStringLiteral("unix:path=/nonexistent/bus");
    }
    void missingBusIsUnavailable()
    {
        QFETCH(QString, address);
        PortalScreenSource source(
            *m_veil, [] { return ScreenLayout(); }, address);
        const auto future = source.take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Unavailable);
        QCOMPARE(source.access(), Access::Unavailable);
        QVERIFY(!m_veil->isGone());
    }

    void endOfThePortalShowsPanel()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        m_portal.reset();
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QVERIFY(!m_veil->isGone());
    }

    void silenceEndsAtTheLimit()
    {
        m_limits = {std::chrono::milliseconds(20), std::chrono::milliseconds(60)};
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        // The panel comes back while the user may be answering a dialog.
        QTRY_VERIFY(!m_veil->isGone());
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
    }

    void latePictureIsTakenAgain()
    {
        m_limits.panelGone = std::chrono::milliseconds(20);
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_veil->covers, 1);
        QTRY_VERIFY(!m_veil->isGone());
        m_veil->isCoveredAtOnce = false;
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(4, 4))}}));
        QTRY_COMPARE(m_veil->covers, 2);
        QTRY_VERIFY(files().isEmpty());
        QVERIFY(!future.isFinished());
        m_veil->finish();
        QTRY_COMPARE(m_portal->handles.size(), 2);
        // Late again: given up.
        QTRY_VERIFY(!m_veil->isGone());
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(4, 4))}}));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QTRY_VERIFY(files().isEmpty());
    }

    void cancelShowsPanelAndRemovesFile()
    {
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        future.cancel();
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        QCOMPARE(future.resultCount(), 0);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(4, 4))}}));
        QTRY_VERIFY(files().isEmpty());
    }

    void cancelWhileBeingCovered()
    {
        m_veil->isCoveredAtOnce = false;
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(m_veil->isGone());
        future.cancel();
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        m_veil->finish();
        QCoreApplication::processEvents();
        QVERIFY(m_portal->handles.isEmpty());
    }

    void destructionShowsPanel()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        m_source.reset();
        QVERIFY(!m_veil->isGone());
        QVERIFY(future.isFinished() && future.isCanceled());
    }

    void forgedResponseIsIgnored()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        struct Forger : BusService
        {
            using BusService::BusService;
            using BusService::emitSignal;
            bool handleMessage(const QDBusMessage &, const QDBusConnection &) override
            {
                return false;
            }
        } forger(m_bus.address(), QStringLiteral("com.example.Forger"), QStringLiteral("/forger"));
        QVERIFY(forger.emitSignal(
            m_portal->handles.last(), QStringLiteral("org.freedesktop.portal.Request"),
            QStringLiteral("Response"),
            {0U, QVariantMap{{QStringLiteral("uri"), writePicture(QSize(5, 5))}}}));
        // Arrives after the forged one.
        QVERIFY(m_portal->respond(1));
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!future.result().has_value());
        QCOMPARE(files().size(), 1);
    }

    void unusableFile_data()
    {
        QTest::addColumn<QString>("what");
        for (const char *what : {"missing", "symlink", "pipe", "folder", "text", "web", "none"})
            QTest::newRow(what) << QString::fromLatin1(what);
    }
    void unusableFile()
    {
        QFETCH(QString, what);
        const QString path = m_folder.filePath(QStringLiteral("x"));
        const QByteArray name = QFile::encodeName(path);
        QString uri = QUrl::fromLocalFile(path).toString();
        if (what == QStringLiteral("symlink")) {
            writePicture(QSize(4, 4), QStringLiteral("target"));
            QVERIFY(QFile::link(m_folder.filePath(QStringLiteral("target")), path));
        } else if (what == QStringLiteral("pipe")) {
            QCOMPARE(::mkfifo(name.constData(), 0600), 0);
        } else if (what == QStringLiteral("folder")) {
            QVERIFY(QDir().mkdir(path));
        } else if (what == QStringLiteral("text")) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("no picture") > 0);
        } else if (what == QStringLiteral("web")) {
            uri = QStringLiteral("https://example.org/x.png");
        } else if (what == QStringLiteral("none")) {
            uri.clear();
        }
        const QStringList before = files();
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        if (what == QStringLiteral("text"))
            touch(path);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), uri}}));
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!future.result().has_value());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QVERIFY(future.result().error().reason.contains(QStringLiteral("cannot be read")));
        // Only a file of the desktop is removed.
        QCOMPARE(files(), what == QStringLiteral("text") ? QStringList() : before);
        QDir().rmdir(path);
    }

    void olderFileIsKept()
    {
        const QString uri = writePicture(QSize(6, 6));
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        const timespec past[2] = {{1'000'000, 0}, {1'000'000, 0}};
        QCOMPARE(
            ::utimensat(AT_FDCWD, QFile::encodeName(QUrl(uri).toLocalFile()).constData(), past, 0),
            0);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), uri}}));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(files().size(), 1);
        QTRY_VERIFY(m_log.contains("[ScreenSource] WARNING: The desktop's picture file is kept: it "
                                   "is older than the request"));
    }

    void fileOfAnotherUserIsKept()
    {
        if (::geteuid() != 0)
            QSKIP("only root can make such a file");
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        const QString uri = writePicture(QSize(6, 6));
        QCOMPARE(::chown(QFile::encodeName(QUrl(uri).toLocalFile()).constData(), 12345, 12345), 0);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), uri}}));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(files().size(), 1);
        QTRY_VERIFY(m_log.contains("[ScreenSource] WARNING: The desktop's picture file is kept: it "
                                   "belongs to another user"));
    }

    void storedAnswerTellsAccess_data()
    {
        QTest::addColumn<StoredAnswers>("answers");
        QTest::addColumn<Access>("access");
        QTest::newRow("nothing") << StoredAnswers() << Access::NotAsked;
        QTest::newRow("yes") << StoredAnswers{{QString(), {QStringLiteral("yes")}}}
                             << Access::Granted;
        QTest::newRow("no") << StoredAnswers{{QString(), {QStringLiteral("no")}}}
                            << Access::Refused;
        QTest::newRow("other program")
            << StoredAnswers{{QStringLiteral("org.example.Other"), {QStringLiteral("yes")}}}
            << Access::NotAsked;
    }
    void storedAnswerTellsAccess()
    {
        QFETCH(StoredAnswers, answers);
        QFETCH(Access, access);
        QTRY_COMPARE(m_source->access(), Access::NotAsked);
        int changes = 0;
        m_source->onAccessChanged([&changes] { ++changes; });
        QVERIFY(m_store->change({}, false, QStringLiteral("wallpaper")));
        QVERIFY(m_store->change(answers));
        QTRY_COMPARE(m_source->access(), access);
        QCOMPARE(changes, access == Access::NotAsked ? 0 : 1);
        QVERIFY(m_store->change({}, true));
        QTRY_COMPARE(m_source->access(), Access::NotAsked);
        m_store->answers = answers;
        makeSource();
        QTRY_COMPARE(m_source->access(), access);
    }

    void changedAnswerReplacesOutcome()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_portal->handles.size(), 1);
        QVERIFY(m_portal->respond(1));
        QTRY_COMPARE(m_source->access(), Access::Refused);
        QVERIFY(m_store->change({{QString(), {QStringLiteral("yes")}}}));
        QTRY_COMPARE(m_source->access(), Access::Granted);
    }

    void portalStartedLaterIsFound()
    {
        m_portal.reset();
        makeSource();
        QTRY_COMPARE(m_source->access(), Access::Unavailable);
        m_portal = std::make_unique<FakeScreenshots>(m_bus.address());
        QTRY_COMPARE(m_source->access(), Access::NotAsked);
    }

    void questionLeavesPanelAndNoFile()
    {
        m_limits.panelGone = std::chrono::milliseconds(1);
        makeSource();
        const auto answer = m_source->ask();
        QTRY_COMPARE(m_portal->handles.size(), 1);
        QTest::qWait(5);
        QVERIFY(m_portal->respond(0, {{QStringLiteral("uri"), writePicture(QSize(4, 4))}}));
        QTRY_VERIFY(answer.isFinished());
        QCOMPARE(answer.result(), Access::Granted);
        QCOMPARE(m_veil->covers, 0);
        QTRY_VERIFY(files().isEmpty());
        QCOMPARE(m_portal->handles.size(), 1);
    }

    void questionDeclined()
    {
        const auto answer = m_source->ask();
        QTRY_COMPARE(m_portal->handles.size(), 1);
        m_store->answers = {{QString(), {QStringLiteral("no")}}};
        QVERIFY(m_portal->respond(2));
        QTRY_VERIFY(answer.isFinished());
        QCOMPARE(answer.result(), Access::Refused);
        QVERIFY(m_source->advice().contains(QStringLiteral("busctl --user call")));
    }

    void questionGivenUp()
    {
        auto answer = m_source->ask();
        QTRY_COMPARE(m_portal->handles.size(), 1);
        answer.cancel();
        QTRY_VERIFY(answer.isFinished());
        QCOMPARE(answer.resultCount(), 0);
    }

    void appIdIsThatOfTheUnit_data()
    {
        QTest::addColumn<QByteArray>("group");
        QTest::addColumn<QString>("id");
        const auto row = [](const char *name, const char *group, const char *id) {
            QTest::newRow(name) << QByteArray(group) << QString::fromUtf8(id);
        };
        row("terminal", "0::/user.slice/user-1000.slice/session-2.scope\n", "");
        row("GNOME",
            "0::/user.slice/user-1000.slice/user@1000.service/app.slice/"
            "app-gnome-quellora-4711.scope\n",
            "quellora");
        row("escaped", "0::/a/app-gnome-org.example.Two\\x2dwords-4711.scope\n",
            "org.example.Two-words");
        row("KDE", "0::/a/app.slice/app-quellora@0a1b.service\n", "quellora");
        row("autostart", "0::/a/app-quellora@autostart.service/x\n", "quellora");
        row("second line", "1:name=x:/\n0::/a/app-quellora-1.scope\n", "quellora");
        row("empty", "", "");
    }
    void appIdIsThatOfTheUnit()
    {
        QFETCH(QByteArray, group);
        QFETCH(QString, id);
        QCOMPARE(PortalPermission::appId(group), id);
    }

    void chosenPart_data()
    {
        QTest::addColumn<QSize>("picture");
        QTest::addColumn<QList<QRect>>("screens");
        QTest::addColumn<int>("chosen");
        QTest::addColumn<QRect>("part");
        const QList<QRect> pair{QRect(0, 0, 1920, 1080), QRect(1920, 100, 1280, 800)};
        QTest::newRow("none") << QSize(10, 10) << QList<QRect>() << 0 << QRect(0, 0, 10, 10);
        QTest::newRow("one") << QSize(10, 10) << QList{QRect(0, 0, 5, 5)} << 0
                             << QRect(0, 0, 10, 10);
        QTest::newRow("left") << QSize(3200, 1080) << pair << 0 << QRect(0, 0, 1920, 1080);
        QTest::newRow("right") << QSize(3200, 1080) << pair << 1 << QRect(1920, 100, 1280, 800);
        QTest::newRow("scaled") << QSize(6400, 2160) << pair << 1 << QRect(3840, 200, 2560, 1600);
        QTest::newRow("left of the first")
            << QSize(300, 100) << QList{QRect(0, 0, 100, 100), QRect(-200, 0, 200, 100)} << 1
            << QRect(0, 0, 200, 100);
        QTest::newRow("other shape") << QSize(3200, 2000) << pair << 1 << QRect(0, 0, 3200, 2000);
        QTest::newRow("no such screen")
            << QSize(3200, 1080) << pair << 2 << QRect(0, 0, 3200, 1080);
        QTest::newRow("empty screens")
            << QSize(3200, 1080) << QList{QRect(), QRect()} << 0 << QRect(0, 0, 3200, 1080);
    }
    void chosenPart()
    {
        QFETCH(QSize, picture);
        QFETCH(QList<QRect>, screens);
        QFETCH(int, chosen);
        QFETCH(QRect, part);
        QCOMPARE(quellora::chosenPart(picture, {screens, chosen}), part);
    }

private:
    void makeSource()
    {
        m_source = std::make_unique<PortalScreenSource>(
            *m_veil, [this] { return m_layout; }, m_bus.address(), m_limits);
    }
    QStringList files() const
    {
        return QDir(m_folder.path()).entryList(QDir::Files | QDir::System | QDir::Hidden);
    }
    static void touch(const QString &path)
    {
        ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), nullptr, 0);
    }
    /// @return the address of a green picture
    QString writePicture(const QSize &size, const QString &name = QStringLiteral("shot 1"))
    {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::green);
        const QString path = m_folder.filePath(name);
        if (!image.save(path, "PNG"))
            qFatal("cannot write a picture");
        return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
    }

    LogCapture m_log;
    PrivateBus m_bus;
    QTemporaryDir m_folder;
    ScreenLayout m_layout;
    PortalScreenSource::Limits m_limits;
    std::unique_ptr<FakeScreenshots> m_portal;
    std::unique_ptr<FakeStore> m_store;
    std::unique_ptr<FakeVeil> m_veil;
    std::unique_ptr<PortalScreenSource> m_source;
};

QUELLORA_TEST(QCoreApplication, PortalScreenSourceTest)
#include "test_portal_screen_source.moc"
