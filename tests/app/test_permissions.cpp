#include "app/PermissionChecker.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"

#include <QTest>

using namespace quellora;

namespace {

class ScriptedPermissions : public Permissions
{
public:
    bool isAccessibilityTrusted() const override { return trusted; }
    bool isScreenRecordingGranted() const override { return granted; }
    void requestScreenRecording() override { ++requests; }

    bool trusted = true;
    bool granted = true;
    int requests = 0;
};

} // namespace

class TestPermissions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void grantedPermissionsLeaveNoMessage()
    {
        ScriptedPermissions system;
        PermissionChecker checker(system);
        LogCapture log;
        checker.checkAccessibility();
        checker.checkScreenRecording();
        QCOMPARE(log.lines,
                 (QStringList{"[PermissionChecker] Accessibility permission trusted: true",
                              "[PermissionChecker] Screen Recording permission granted: true"}));
        QVERIFY(!checker.pendingAdminMessage());
        QVERIFY(checker.problemLines().isEmpty());
        QCOMPARE(system.requests, 0);
    }

    void missingPermissionsGrowOneMessage()
    {
        ScriptedPermissions system;
        system.trusted = false;
        system.granted = false;
        PermissionChecker checker(system);
        LogCapture log;
        checker.checkAccessibility();
        QCOMPARE(checker.pendingAdminMessage()->headerText, "Startup issue");
        checker.checkScreenRecording();
        const AdminMessagePayload message = *checker.pendingAdminMessage();
        QCOMPARE(message.id, "startup-permission-issues");
        QCOMPARE(message.type, "INFORMATIONAL");
        QCOMPARE(message.headerText, "Startup issues");
        QCOMPARE(message.bodyMarkdown,
                 QString::fromUtf8(
                     "**Accessibility permission not granted.** Global hotkeys may not work "
                     "reliably. Grant it in System Settings → Privacy & Security → Accessibility "
                     "→ enable Quellora, then relaunch the app.\n\n"
                     "**Screen Recording permission not granted.** Captures will be blank or fail "
                     "silently. Grant it in System Settings → Privacy & Security → Screen "
                     "Recording → enable Quellora, then relaunch the app."));
        QVERIFY(!message.actionLabel && !message.actionUrl && !message.forceUpdateInMinutes);
        QCOMPARE(system.requests, 1);
        QVERIFY(log.contains("[PermissionChecker] Accessibility permission trusted: false"));
        QVERIFY(log.contains("[PermissionChecker] Screen Recording permission granted: false"));
    }
};

QTEST_GUILESS_MAIN(TestPermissions)
#include "test_permissions.moc"
