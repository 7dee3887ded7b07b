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
const QString shortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString screenshot = QStringLiteral("org.freedesktop.portal.Screenshot");

/// A desktop portal that offers the portals in `versions`.
class FakePortal : public QDBusVirtualObject
{
    Q_OBJECT
public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("Get"))
            return false;
        const QString asked = message.arguments().value(0).toString();
        if (message.arguments().value(1) != QStringLiteral("version"))
            return false;
        ++questions;
        if (isSilent)
            return true;
        connection.send(versions.contains(asked)
                            ? message.createReply(QVariant::fromValue(
                                  QDBusVariant(QVariant::fromValue(versions.value(asked)))))
                            : message.createErrorReply(QDBusError::UnknownInterface,
                                                       QStringLiteral("no such portal")));
        return true;
    }
    QMap<QString, uint> versions;
    bool isSilent = false;
    int questions = 0;
};

} // namespace

/// Against a session bus of its own with a portal made for the test.
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

    void onX11NobodyIsAsked()
    {
        appear();
        PermissionsLinux permissions(PermissionsLinux::Session::X11, m_address);
        QVERIFY(permissions.isAccessibilityTrusted());
        QVERIFY(permissions.isScreenRecordingGranted());
        QThreadPool::globalInstance()->waitForDone();
        // A later question arrives after an earlier one would have.
        PermissionsLinux other(PermissionsLinux::Session::Wayland, m_address);
        QTRY_COMPARE(m_portal->questions, 2);
    }

    void thePortalsAnswerCounts_data()
    {
        QTest::addColumn<bool>("hasShortcuts");
        QTest::addColumn<bool>("hasScreenshots");
        QTest::newRow("both") << true << true;
        QTest::newRow("screenshots only") << false << true;
        QTest::newRow("shortcuts only") << true << false;
        QTest::newRow("neither") << false << false;
    }
    void thePortalsAnswerCounts()
    {
        QFETCH(bool, hasShortcuts);
        QFETCH(bool, hasScreenshots);
        if (hasShortcuts)
            m_portal->versions.insert(shortcuts, 1);
        if (hasScreenshots)
            m_portal->versions.insert(screenshot, 2);
        appear();
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        int changes = 0;
        permissions.onChanged([&changes] { ++changes; });
        QVERIFY(!permissions.isAccessibilityTrusted());
        QVERIFY(!permissions.isScreenRecordingGranted());
        QTRY_COMPARE(m_portal->questions, 2);
        QTRY_COMPARE(changes, int(hasShortcuts) + int(hasScreenshots));
        QCOMPARE(permissions.isAccessibilityTrusted(), hasShortcuts);
        QCOMPARE(permissions.isScreenRecordingGranted(), hasScreenshots);
    }

    void aPortalThatComesLaterIsAskedThen()
    {
        m_portal->versions = {{shortcuts, 1}, {screenshot, 1}};
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QVERIFY(!permissions.isAccessibilityTrusted());
        appear();
        QTRY_VERIFY(permissions.isAccessibilityTrusted());
        QTRY_VERIFY(permissions.isScreenRecordingGranted());
    }

    void aSilentPortalGrantsNothingAndHoldsNobodyUp()
    {
        m_portal->isSilent = true;
        appear();
        QElapsedTimer timer;
        timer.start();
        PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QTRY_COMPARE(m_portal->questions, 2);
        QVERIFY(!permissions.isAccessibilityTrusted());
        QVERIFY(timer.elapsed() < 5000);
    }

    void withoutBusNothingIsGranted()
    {
        for (const QString &address : {QString(), QStringLiteral("unix:path=/nonexistent/bus")}) {
            PermissionsLinux permissions(PermissionsLinux::Session::Wayland, address);
            QThreadPool::globalInstance()->waitForDone();
            QCoreApplication::processEvents();
            QVERIFY(!permissions.isAccessibilityTrusted());
            QVERIFY(!permissions.isScreenRecordingGranted());
        }
    }

    void mayBeDestroyedWhileAsking()
    {
        appear();
        for (int i = 0; i < 5; ++i)
            PermissionsLinux permissions(PermissionsLinux::Session::Wayland, m_address);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }

private:
    void appear()
    {
        QVERIFY(QDBusConnection(QStringLiteral("portal")).registerService(portalService));
    }

    QProcess m_daemon;
    QString m_address;
    std::unique_ptr<FakePortal> m_portal;
};

QUELLORA_TEST(QGuiApplication, PermissionsLinuxTest)
#include "test_permissions_linux.moc"
