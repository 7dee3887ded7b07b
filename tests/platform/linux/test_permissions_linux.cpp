#include "platform/ScreenSource.h"
#include "platform/linux/PermissionsLinux.h"
#include "support/TestProgram.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QGuiApplication>
#include <QProcess>
#include <QThreadPool>
#include <QtTest>

using namespace quellora;

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

/// A desktop portal that implements the interfaces in `versions`.
class FakePortal : public QDBusVirtualObject
{
    Q_OBJECT
public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("Get"))
            return false;
        const QString portal = message.arguments().value(0).toString();
        if (message.arguments().value(1) != QStringLiteral("version"))
            return false;
        ++calls;
        if (isSilent)
            return true;
        connection.send(versions.contains(portal)
                            ? message.createReply(QVariant::fromValue(
                                  QDBusVariant(QVariant::fromValue(versions.value(portal)))))
                            : message.createErrorReply(QDBusError::UnknownInterface,
                                                       QStringLiteral("no such portal")));
        return true;
    }
    QMap<QString, uint> versions;
    bool isSilent = false;
    int calls = 0;
};

class FakeScreenSource : public ScreenSource
{
public:
    QFuture<Picture> take(Area) override { return {}; }
    Access access() const override { return current; }
    void onAccessChanged(std::function<void()> newHandler) override { handler = newHandler; }

    Access current = Access::Unknown;
    std::function<void()> handler;
};

} // namespace

/// Uses a private session bus with a fake portal.
class PermissionsLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"),
                        QStringLiteral("--print-address")});
        QVERIFY(m_daemon.waitForStarted());
        QTRY_VERIFY(m_daemon.canReadLine());
        m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
    }
    void cleanupTestCase()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }
    void init()
    {
        m_portal = std::make_unique<FakePortal>();
        QDBusConnection bus = QDBusConnection::connectToBus(m_address, QStringLiteral("portal"));
        QVERIFY(bus.isConnected());
        QVERIFY(bus.registerVirtualObject(portalPath, m_portal.get()));
    }
    void cleanup()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("portal"));
        m_portal.reset();
    }

    void x11DoesNotQueryPortal()
    {
        registerPortal();
        PermissionsLinux permissions(PermissionsLinux::Session::X11, m_address);
        QVERIFY(permissions.isAccessibilityTrusted());
        QVERIFY(permissions.isScreenRecordingGranted());
        QThreadPool::globalInstance()->waitForDone();
        // Calls arrive in order: any call from the X11 object would have been counted, too.
        PermissionsLinux other(PermissionsLinux::Session::Wayland, m_address);
        QTRY_COMPARE(m_portal->calls, 1);
    }

    void portalVersionGrantsShortcuts_data()
    {
        QTest::addColumn<bool>("hasShortcuts");
        QTest::newRow("with") << true;
        QTest::newRow("without") << false;
    }
    void portalVersionGrantsShortcuts()
    {
        QFETCH(bool, hasShortcuts);
        if (hasShortcuts)
            m_portal->versions.insert(shortcutsInterface, 1);
        registerPortal();
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        int changes = 0;
        permissions.onChanged([&changes] { ++changes; });
        QVERIFY(!permissions.isAccessibilityTrusted());
        QTRY_COMPARE(m_portal->calls, 1);
        QTRY_COMPARE(changes, int(hasShortcuts));
        QCOMPARE(permissions.isAccessibilityTrusted(), hasShortcuts);
    }

    void sourceDecidesAboutPictures()
    {
        using Access = ScreenSource::Access;
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, QString());
        QVERIFY(!permissions.isScreenRecordingGranted());
        FakeScreenSource source;
        permissions.setScreenSource(&source);
        for (const Access access :
             {Access::Unknown, Access::NotAsked, Access::Refused, Access::Unavailable}) {
            source.current = access;
            QVERIFY(!permissions.isScreenRecordingGranted());
        }
        source.current = Access::Granted;
        QVERIFY(permissions.isScreenRecordingGranted());
        int changes = 0;
        permissions.onChanged([&changes] { ++changes; });
        source.handler();
        QCOMPARE(changes, 1);
    }

    void portalStartedLaterIsQueried()
    {
        m_portal->versions = {{shortcutsInterface, 1}};
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QVERIFY(!permissions.isAccessibilityTrusted());
        registerPortal();
        QTRY_VERIFY(permissions.isAccessibilityTrusted());
    }

    void unresponsivePortalGrantsNothingWithoutBlocking()
    {
        m_portal->isSilent = true;
        registerPortal();
        QElapsedTimer timer;
        timer.start();
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QTRY_COMPARE(m_portal->calls, 1);
        QVERIFY(!permissions.isAccessibilityTrusted());
        QVERIFY(timer.elapsed() < 5000);
    }

    void nothingIsGrantedWithoutBus()
    {
        for (const QString &address : {QString(), QStringLiteral("unix:path=/nonexistent/bus")}) {
            PermissionsLinux permissions(PermissionsLinux::Session::Wayland, address);
            QThreadPool::globalInstance()->waitForDone();
            QCoreApplication::processEvents();
            QVERIFY(!permissions.isAccessibilityTrusted());
            QVERIFY(!permissions.isScreenRecordingGranted());
        }
    }

    void canBeDestroyedDuringQuery()
    {
        registerPortal();
        for (int i = 0; i < 5; ++i)
            PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }

private:
    void registerPortal()
    {
        QVERIFY(QDBusConnection(QStringLiteral("portal")).registerService(portalService));
    }

    QProcess m_daemon;
    QString m_address;
    std::unique_ptr<FakePortal> m_portal;
};

QUELLORA_TEST(QGuiApplication, PermissionsLinuxTest)
#include "test_permissions_linux.moc"
