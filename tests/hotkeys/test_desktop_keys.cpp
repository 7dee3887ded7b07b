#include "fakes/FakeDesktopShortcuts.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "hotkeys/HotkeyManager.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace quellora;
using namespace std::chrono_literals;

using Delivery = HotkeyManager::Delivery;

namespace {

constexpr auto ctrlAltCmd = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

/// Registers nothing, like a session without hot keys for programs.
class UnavailableHotkeys : public FakeGlobalHotkeys
{
public:
    Result registerHotkey(QKeyCombination) override
    {
        ++calls;
        return tl::unexpected(Failure{Failure::Kind::Unavailable, 0});
    }
    int calls = 0;
};

} // namespace

/// The manager of the hot keys where the desktop has shortcuts of its own.
class DesktopKeysTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_platform = FakeGlobalHotkeys();
        m_desktop = std::make_unique<FakeDesktopShortcuts>();
        make(m_platform);
        m_problems.clear();
        m_pressed.clear();
        m_log.clear();
    }

    void actionsAreOfferedOnce()
    {
        HotkeyCombos combos;
        combos[HotkeyAction::Clear] = QStringLiteral("no key");
        combos[HotkeyAction::Toggle].clear();
        m_manager->start(combos);
        QCOMPARE(m_desktop->offers, 0);
        m_manager->offerToDesktop();
        m_manager->offerToDesktop();
        QCOMPARE(m_desktop->offers, 1);
        QCOMPARE(m_desktop->offered.size(), qsizetype(hotkeyActions.size()));
        const DesktopShortcuts::Action &capture = m_desktop->offered.first();
        QCOMPARE(capture.id, "capture");
        QCOMPARE(capture.description, "Take a screenshot and send it");
        QCOMPARE(capture.preferred, QKeyCombination(ctrlAltCmd, Qt::Key_C));
        QCOMPARE(m_desktop->offered.at(1).id, "clear");
        QVERIFY(!m_desktop->offered.at(1).preferred);
        QVERIFY(!m_desktop->offered.at(2).preferred);
        for (const DesktopShortcuts::Action &action : m_desktop->offered)
            QVERIFY(!action.description.isEmpty());
    }

    void ownCombosWorkUntilTheDesktopDelivers()
    {
        m_manager->start({});
        m_manager->offerToDesktop();
        QCOMPARE(m_manager->delivery(), Delivery::OwnPartly);
        QVERIFY(m_manager->isDesktopUndecided());
        QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_T));
        m_desktop->answer(Capability::unsupported(QStringLiteral("No.")));
        QCOMPARE(m_manager->delivery(), Delivery::OwnPartly);
        QVERIFY(!m_manager->isDesktopUndecided());
        QCOMPARE(m_manager->desktopReason(), "No.");
        QCOMPARE(m_platform.registered.size(), 7);
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed, QList{HotkeyAction::Toggle});
    }

    void noPressCountsTwice()
    {
        m_manager->start({});
        m_manager->offerToDesktop();
        QSignalSpy changed(m_manager.get(), &HotkeyManager::deliveryChanged);
        m_desktop->answer(Capability::applied(), {{"capture", "Ctrl+Alt+C"}});
        QVERIFY(!changed.isEmpty());
        QCOMPARE(m_manager->delivery(), Delivery::Desktop);
        QVERIFY(m_platform.registered.isEmpty());
        QCOMPARE(m_manager->desktopKey(HotkeyAction::Capture), "Ctrl+Alt+C");
        QVERIFY(m_manager->desktopKey(HotkeyAction::Toggle).isEmpty());
        QVERIFY(m_manager->desktopReason().isEmpty());

        m_desktop->press(QStringLiteral("capture-no-send"));
        m_desktop->press(QStringLiteral("unknown"));
        QVERIFY(m_pressed.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed, QList{HotkeyAction::CaptureNoSend});
        QVERIFY(m_log.contains("[HotkeyManager] Fired: Capture (No Send)"));
    }

    void pressesAreDebouncedAcrossBothWays()
    {
        m_manager->start({});
        QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_C));
        m_desktop->answer(Capability::applied());
        m_now += 299ms;
        m_desktop->press(QStringLiteral("capture"));
        QVERIFY(
            m_log.contains("[HotkeyManager] Ignored re-fire of Capture within debounce window"));
        m_now += 2ms;
        m_desktop->press(QStringLiteral("capture"));
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed.size(), 2);
    }

    void anUnsetActionHasTheDesktopsKeyOnly()
    {
        HotkeyCombos combos;
        combos[HotkeyAction::Clear].clear();
        m_manager->start(combos);
        m_desktop->answer(Capability::applied(), {{"clear", "Meta+X"}});
        QCOMPARE(m_manager->desktopKey(HotkeyAction::Clear), "Meta+X");
        m_desktop->press(QStringLiteral("clear"));
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed, QList{HotkeyAction::Clear});
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QCOMPARE(m_platform.registered.size(), 6);
        QVERIFY(m_problems.isEmpty());
    }

    void ownCombosComeBackWhenTheDesktopStops()
    {
        HotkeyCombos combos;
        combos[HotkeyAction::Clear] = QStringLiteral("alt+k");
        m_manager->start(combos);
        m_desktop->answer(Capability::applied());
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QCOMPARE(m_manager->delivery(), Delivery::OwnPartly);
        QCOMPARE(m_platform.registered.size(), 7);
        QVERIFY(m_platform.pressCombo(Qt::ALT | Qt::Key_K));
        QVERIFY(m_manager->desktopKey(HotkeyAction::Capture).isEmpty());
    }

    void problemsOfOwnCombosEndWithThem()
    {
        m_platform.claim(ctrlAltCmd | Qt::Key_T);
        m_manager->start({});
        QCOMPARE(m_problems.keys(), QList<HotkeyId>{HotkeyAction::Toggle});
        m_desktop->answer(Capability::applied());
        QVERIFY(m_problems.isEmpty());
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QCOMPARE(m_problems.keys(), QList<HotkeyId>{HotkeyAction::Toggle});
    }

    void startingAgainRegistersNothingWhileTheDesktopDelivers()
    {
        m_manager->start({});
        m_desktop->answer(Capability::applied());
        m_manager->stop();
        m_desktop->press(QStringLiteral("capture"));
        QCoreApplication::processEvents();
        QVERIFY(m_pressed.isEmpty());
        HotkeyCombos combos;
        combos[HotkeyAction::Clear] = QStringLiteral("alt+k");
        m_manager->start(combos);
        QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QStringLiteral("alt+t")));
        QVERIFY(m_platform.registered.isEmpty());
        m_desktop->press(QStringLiteral("capture"));
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed.size(), 1);
        // The combos given meanwhile are in force afterwards.
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QVERIFY(m_platform.isRegistered(Qt::ALT | Qt::Key_K));
        QVERIFY(m_platform.isRegistered(Qt::ALT | Qt::Key_T));
    }

    void recordingKeepsCombosReleased()
    {
        m_manager->start({});
        m_desktop->answer(Capability::applied());
        m_manager->suspendAll();
        m_desktop->press(QStringLiteral("capture"));
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QVERIFY(m_platform.registered.isEmpty());
        m_manager->resume({});
        QCOMPARE(m_platform.registered.size(), 7);
        QCoreApplication::processEvents();
        QVERIFY(m_pressed.isEmpty());
    }

    void aSessionWithoutHotkeysIsOneLineAndNoProblem()
    {
        UnavailableHotkeys platform;
        make(platform);
        m_manager->start({});
        m_manager->suspendAll();
        m_manager->resume({});
        QCOMPARE(platform.calls, 14);
        QCOMPARE(m_manager->delivery(), Delivery::None);
        QVERIFY(m_problems.isEmpty());
        QVERIFY(m_manager->activeHotkeys().isEmpty());
        QCOMPARE(m_log.lines.filter(QStringLiteral("WARNING")),
                 QStringList{"[HotkeyManager] WARNING: This session has no hotkeys for programs to "
                             "register"});
        QVERIFY(m_log.lines.filter(QStringLiteral("ERROR")).isEmpty());
        m_desktop->answer(Capability::applied());
        QCOMPARE(m_manager->delivery(), Delivery::Desktop);
        m_desktop->press(QStringLiteral("toggle"));
        QCoreApplication::processEvents();
        QCOMPARE(m_pressed, QList{HotkeyAction::Toggle});
        m_desktop->answer(Capability::unsupported(QStringLiteral("Gone.")));
        QCOMPARE(m_manager->delivery(), Delivery::None);
        m_manager.reset();
    }

    void failuresElsewhereAreProblems()
    {
        UnavailableHotkeys platform;
        m_manager = std::make_unique<HotkeyManager>(
            platform, Vocabulary::linuxDesktop(), [this] { return m_now; }, problemSink());
        m_manager->start({});
        QCOMPARE(m_problems.size(), 7);
        QCOMPARE(m_manager->delivery(), Delivery::Own);
        m_manager->offerToDesktop();
        QVERIFY(!m_manager->isDesktopUndecided());
        QVERIFY(m_manager->desktopReason().isEmpty());
        m_manager.reset();
    }

private:
    void make(GlobalHotkeys &platform)
    {
        m_manager = std::make_unique<HotkeyManager>(
            platform, Vocabulary::linuxDesktop(), [this] { return m_now; }, problemSink(),
            m_desktop.get());
        connect(m_manager.get(), &HotkeyManager::pressed, this,
                [this](HotkeyAction action) { m_pressed << action; });
    }
    HotkeyManager::ProblemSink problemSink()
    {
        return [this](const HotkeyId &action, const QString &line) {
            if (line.isEmpty())
                m_problems.remove(action);
            else
                m_problems.insert(action, line);
        };
    }

    FakeGlobalHotkeys m_platform;
    std::unique_ptr<FakeDesktopShortcuts> m_desktop;
    std::chrono::steady_clock::time_point m_now{1000s};
    QMap<HotkeyId, QString> m_problems;
    QList<HotkeyAction> m_pressed;
    LogCapture m_log;
    std::unique_ptr<HotkeyManager> m_manager;
};

QUELLORA_TEST(QCoreApplication, DesktopKeysTest)
#include "test_desktop_keys.moc"
