#include "platform/DesktopSession.h"
#include "platform/Notifications.h"
#include "platform/null/NullPlatform.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QWindow>
#include <QtTest>

using namespace quellora;

namespace {

class StubDeviceInfo : public DeviceInfo
{
public:
    QString osVersion() const override { return QStringLiteral("Some OS 1"); }
    QString cpuArch() const override { return QStringLiteral("arm64"); }
};

bool isUnsupported(const Capability &result)
{
    return result.state() == Capability::State::Unsupported && !result.reason().isEmpty();
}

} // namespace

/// The null port provides every role and reports requests as unsupported, with a reason.
class TestContractNull : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void panelOnlyShowsAndHides()
    {
        QWindow window;
        PanelWindow &panel = m_platform.panelWindow();
        QVERIFY(isUnsupported(panel.applyPanelTraits(window)));
        QVERIFY(isUnsupported(panel.excludeFromCapture(window)));
        QVERIFY(isUnsupported(panel.setClickThrough(window, {0, 0, 10, 10})));
        QVERIFY(isUnsupported(panel.makeKey(window)));
        QVERIFY(!window.isVisible());
        QVERIFY(isUnsupported(panel.orderFront(window)));
        QVERIFY(window.isVisible());
        QVERIFY(isUnsupported(panel.setClickThrough(window, {})));
        panel.resignKey(window);
        QVERIFY(window.isVisible());
        QVERIFY(!panel.isCompositing());
        panel.onCompositingChanged([] { QFAIL("the null port never reports a change"); });
    }

    void hotkeysAreUnavailable()
    {
        GlobalHotkeys &hotkeys = m_platform.globalHotkeys();
        hotkeys.installHandler(
            [](GlobalHotkeys::Registration) { QFAIL("the null port never reports a press"); });
        const auto result = hotkeys.registerHotkey(Qt::META | Qt::Key_C);
        QVERIFY(!result);
        QCOMPARE(result.error().kind, GlobalHotkeys::Failure::Kind::Unavailable);
        hotkeys.unregisterHotkey(1);
        hotkeys.removeHandler();
        m_platform.keyMonitor().install([](const KeyDown &) {});
        m_platform.keyMonitor().remove();
        m_platform.keyMonitor().remove();
    }

    void nothingIsGrantedOrAvailable()
    {
        Permissions &permissions = m_platform.permissions();
        permissions.onChanged([] { QFAIL("the null port never reports a change"); });
        permissions.requestScreenRecording();
        QVERIFY(!permissions.isAccessibilityTrusted());
        QVERIFY(!permissions.isScreenRecordingGranted());
        m_platform.appearance().onChanged([] { QFAIL("the null port never reports a change"); });
        m_platform.appearance().onMotionChanged(
            [] { QFAIL("the null port never reports a change"); });
        QVERIFY(!m_platform.appearance().isDark());
        QVERIFY(!m_platform.appearance().reducesMotion());
        m_platform.statusArea().onChanged([] { QFAIL("the null port never reports a change"); });
        QVERIFY(!m_platform.statusArea().isAvailable());
        QVERIFY(m_platform.symbols().image(QStringLiteral("gear"), 16, 1).isNull());
    }

    void sessionIsNotObserved()
    {
        QVERIFY(isUnsupported(m_platform.desktopSession().isObserved()));
        QVERIFY(!m_platform.desktopSession().isLocked());
    }

    void notificationsAreUnsupported()
    {
        Notifications &notifications = m_platform.notifications();
        QVERIFY(isUnsupported(notifications.support()));
        notifications.show(QStringLiteral("Title"), QStringLiteral("Text"));
        notifications.close();
    }

    void openingAndActivatingAreUnsupported()
    {
        QWindow window;
        Workspace &workspace = m_platform.workspace();
        for (const QFuture<OpenResult> &opening :
             {workspace.openUrl(QUrl(QStringLiteral("https://a.example"))),
              workspace.openFile(QCoreApplication::applicationFilePath())}) {
            QVERIFY(opening.isFinished());
            QCOMPARE(opening.result().error().reason, QStringLiteral("there is no desktop"));
        }
        QVERIFY(isUnsupported(m_platform.shell().makeOrdinary(window)));
        QVERIFY(isUnsupported(m_platform.shell().becomeAccessory()));
        QVERIFY(isUnsupported(m_platform.shell().installEditMenu()));
        QVERIFY(isUnsupported(m_platform.shell().activate(window)));
        QVERIFY(window.isVisible());
    }

    void reportsGivenFacts()
    {
        QCOMPARE(m_platform.deviceInfo().osVersion(), QStringLiteral("Some OS 1"));
        QCOMPARE(m_platform.deviceInfo().cpuArch(), QStringLiteral("arm64"));
        QCOMPARE(m_platform.captureTool().program, QStringLiteral("/bin/capture"));
        QCOMPARE(m_platform.applicationSupportDirectory(), QStringLiteral("/data"));
    }

private:
    NullPlatform m_platform{std::make_unique<StubDeviceInfo>(),
                            {QStringLiteral("/bin/capture"), {}},
                            QStringLiteral("/data"),
                            Vocabulary::linuxDesktop()};
};

QUELLORA_TEST(QGuiApplication, TestContractNull)
#include "test_contract_null.moc"
