#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "query/PermissionChecker.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

class FakeScreenSource : public ScreenSource
{
public:
    QFuture<Picture> take(Area) override { return {}; }
    Access access() const override { return current; }
    QString advice() const override { return QStringLiteral("Advice."); }
    Access current = Access::Unknown;
};

} // namespace

class TestPermissions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void grantedPermissionsAddNoMessage()
    {
        FakePermissions system;
        PermissionChecker checker(system, Vocabulary::macOS());
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

    void missingPermissionsShareOneMessage()
    {
        FakePermissions system;
        system.accessibility = false;
        system.screenRecording = false;
        PermissionChecker checker(system, Vocabulary::macOS());
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

    void screenSourceDecidesAboutPictures()
    {
        using Access = ScreenSource::Access;
        FakePermissions system;
        system.screenRecording = false;
        FakeScreenSource source;
        PermissionChecker checker(system, Vocabulary::linuxDesktop(), &source);
        LogCapture log;
        const auto set = [&](Access access) {
            source.current = access;
            system.handler();
        };
        checker.checkScreenRecording();
        set(Access::NotAsked);
        // The desktop asks at the first picture.
        QVERIFY(checker.problemLines().isEmpty() && log.lines.isEmpty());
        const QStringList problem{"**Quellora cannot take pictures of the screen.** Advice."};
        set(Access::Refused);
        QCOMPARE(checker.problemLines(), problem);
        set(Access::Refused);
        QCOMPARE(log.lines,
                 QStringList{"[PermissionChecker] Screen Recording permission granted: false"});
        set(Access::Granted);
        QVERIFY(checker.problemLines().isEmpty() && !checker.pendingAdminMessage());
        QCOMPARE(log.lines.last(), "[PermissionChecker] Screen Recording permission granted: true");
        set(Access::Unavailable);
        QCOMPARE(checker.problemLines(), problem);
        set(Access::NotAsked);
        QVERIFY(checker.problemLines().isEmpty());
        QCOMPARE(system.requests, 0);
    }

    void grantingPermissionRemovesOnlyItsLine()
    {
        FakePermissions system;
        system.accessibility = false;
        system.screenRecording = false;
        PermissionChecker checker(system, Vocabulary::macOS());
        checker.checkAccessibility();
        checker.setProblem("capture", "a hot key");
        checker.checkScreenRecording();
        QSignalSpy changes(&checker, &PermissionChecker::pendingAdminMessageChanged);
        LogCapture log;
        checker.retest();
        QCOMPARE(changes.count(), 0);
        QCOMPARE(checker.problemLines().size(), 3);

        system.screenRecording = true;
        checker.retest();
        QCOMPARE(changes.count(), 1);
        QCOMPARE(checker.problemLines().size(), 2);
        QCOMPARE(checker.problemLines().last(), "a hot key");
        QCOMPARE(checker.pendingAdminMessage()->headerText, "Startup issues");
        QCOMPARE(log.lines, QStringList{"[PermissionChecker] Screen Recording permission granted: "
                                        "true"});

        system.accessibility = true;
        checker.retest();
        QCOMPARE(checker.pendingAdminMessage()->headerText, "Startup issue");
        QCOMPARE(checker.pendingAdminMessage()->bodyMarkdown, "a hot key");
        checker.retest();
        QCOMPARE(changes.count(), 2);
        QCOMPARE(system.requests, 1);
    }

    void adviceIsPlatformSpecific()
    {
        FakePermissions system;
        system.accessibility = false;
        system.screenRecording = false;
        PermissionChecker checker(system, Vocabulary::linuxDesktop());
        checker.checkAccessibility();
        checker.checkScreenRecording();
        QCOMPARE(checker.problemLines(),
                 (QStringList{
                     "**Screen Recording permission not granted.** Captures will be blank or fail "
                     "silently. Start Quellora in an X11 or Wayland session. Where a Wayland "
                     "desktop takes no panels from programs, as GNOME's, XWayland must be "
                     "installed."}));
    }

    void eachSubjectHasAtMostOneLine()
    {
        FakePermissions system;
        system.accessibility = false;
        PermissionChecker checker(system, Vocabulary::macOS());
        checker.setProblem("capture", "first");
        checker.setProblem("clear", "second");
        QSignalSpy changes(&checker, &PermissionChecker::pendingAdminMessageChanged);
        checker.setProblem("capture", "first");
        checker.setProblem("toggle", {});
        QCOMPARE(changes.count(), 0);
        checker.setProblem("capture", "now this");
        QCOMPARE(checker.problemLines(), (QStringList{"now this", "second"}));
        QCOMPARE(checker.pendingAdminMessage()->headerText, "Startup issues");
        checker.checkAccessibility();
        checker.checkAccessibility();
        QCOMPARE(checker.problemLines().size(), 3);
        checker.setProblem("capture", {});
        system.answer(true, true);
        QCOMPARE(checker.problemLines(), QStringList{"second"});
        QCOMPARE(checker.pendingAdminMessage()->headerText, "Startup issue");
        checker.setProblem("clear", {});
        QVERIFY(!checker.pendingAdminMessage());
        checker.setProblem("clear", "again");
        QCOMPARE(checker.pendingAdminMessage()->bodyMarkdown, "again");
    }

    void systemNotificationRemovesMessage()
    {
        FakePermissions system;
        system.accessibility = false;
        system.screenRecording = false;
        PermissionChecker checker(system, Vocabulary::macOS());
        checker.checkAccessibility();
        checker.checkScreenRecording();
        system.answer(true, true);
        QVERIFY(!checker.pendingAdminMessage());
        QVERIFY(checker.problemLines().isEmpty());
    }

    void destroyedCheckerIsNotCalled()
    {
        FakePermissions system;
        system.accessibility = false;
        {
            PermissionChecker checker(system, Vocabulary::macOS());
            checker.checkAccessibility();
        }
        QVERIFY(!system.handler);
        system.answer(true, true);
    }
};

QUELLORA_TEST(QCoreApplication, TestPermissions)
#include "test_permission_checker.moc"
