#include "fakes/FakeDesktopShortcuts.h"
#include "platform/ScreenSource.h"
#include "platform/linux/PermissionsLinux.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

using namespace quellora;

using Session = PermissionsLinux::Session;

namespace {

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

class PermissionsLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void x11GrantsEverything()
    {
        const PermissionsLinux permissions(Session::X11);
        QVERIFY(permissions.isAccessibilityTrusted());
        QVERIFY(permissions.isScreenRecordingGranted());
    }

    void waylandGrantsNothingByItself()
    {
        const PermissionsLinux permissions(Session::Wayland);
        QVERIFY(!permissions.isAccessibilityTrusted());
        QVERIFY(!permissions.isScreenRecordingGranted());
    }

    void keysArePermittedWhileTheDesktopDeliversThem()
    {
        FakeDesktopShortcuts shortcuts;
        PermissionsLinux permissions(Session::Wayland, &shortcuts);
        QList<bool> seen;
        permissions.onChanged([&] { seen << permissions.isAccessibilityTrusted(); });
        QVERIFY(!permissions.isAccessibilityTrusted());
        shortcuts.answer(Capability::unsupported(QStringLiteral("No.")));
        QVERIFY(!permissions.isAccessibilityTrusted());
        shortcuts.answer(Capability::applied());
        QVERIFY(permissions.isAccessibilityTrusted());
        shortcuts.answer(Capability::applied(), {{"capture", "Meta+C"}});
        shortcuts.answer(Capability::unsupported(QStringLiteral("No more.")));
        QCOMPARE(seen, (QList<bool>{true, false}));
        permissions.onChanged({});
        shortcuts.answer(Capability::applied());
    }

    void sourceDecidesAboutPictures()
    {
        using Access = ScreenSource::Access;
        PermissionsLinux permissions(Session::Wayland);
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
};

QUELLORA_TEST(QCoreApplication, PermissionsLinuxTest)
#include "test_permissions_linux.moc"
