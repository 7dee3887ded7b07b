#include "base/Log.h"
#include "fakes/FakePlatform.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

#include <memory>

using namespace quellora;
using namespace std::chrono_literals;

namespace {

constexpr Qt::KeyboardModifiers ctrlAltCmd =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

} // namespace

class HotkeyManagerTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void startRegistersTheActionsInOrder();
    void eachPressIsReportedOnce();
    void pressesAreReportedFromTheEventLoop();
    void latePressesAreDroppedWithTheManager();
    void ignoresUnknownRegistrations();
    void debouncesPerAction();
    void ignoredPressDoesNotMoveTheDebounce();
    void differentActionsDoNotDebounceEachOther();
    void unsupportedCombosAreReported_data();
    void unsupportedCombosAreReported();
    void anUnsetActionIsNoProblem();
    void anActionIsUnsetAndSetLive();
    void unsettingWithdrawsAProblem();
    void unsettingFreesTheCombo();
    void aFailedChangeOfAnUnsetActionLeavesNoProblem();
    void takenComboIsReportedAndLeavesTheOthers();
    void aKeyThatTheSystemLacksIsUnsupported();
    void stopReleasesEverything();
    void suspendKeepsTheHandler();
    void resumeRegistersAgain();
    void startAgainAfterStop();
    void repeatedStartLeaksNothing();
    void updateBindsAnew();
    void updateOfUnknownKeyChangesNothing();
    void updateRollsBack();
    void updateRollsBackFromUnsupportedCombo();
    void updateWithoutPreviousComboJustFails();
    void problemsAreNamedInTheSystemsWords();
    void aComboOfOurOwnIsNamedByItsRow();
    void aComboOfOurOwnIsFoundHoweverItIsWritten();
    void theNameOfWhoAnswersIsKeptUpToDate();
    void repeatedRegistrationReportsAProblemOnce();
    void aSolvedProblemIsWithdrawn();
    void aFailedChangeLeavesNoProblemBehind();
    void aFailedChangeLeavesTheProblemBeforeIt();
    void aFreedComboGoesToWhoeverLackedIt();
    void destructionReleasesEverything();

private:
    void press(HotkeyAction action);
    HotkeyManager::ProblemSink problemSink();

    FakeGlobalHotkeys m_platform;
    std::chrono::steady_clock::time_point m_now;
    /// Every problem that was ever reported.
    QStringList m_problems;
    /// Those that stand.
    QMap<HotkeyId, QString> m_standing;
    QStringList m_log;
    QList<HotkeyAction> m_pressed;
    std::unique_ptr<HotkeyManager> m_manager;
};

void HotkeyManagerTest::init()
{
    m_platform = FakeGlobalHotkeys();
    m_now = std::chrono::steady_clock::time_point(1000s);
    m_problems.clear();
    m_standing.clear();
    m_log.clear();
    m_pressed.clear();
    Log::setSinkForTesting([this](const QString &line) { m_log << line; });
    m_manager = std::make_unique<HotkeyManager>(
        m_platform, Vocabulary::macOS(), [this] { return m_now; }, problemSink());
    connect(m_manager.get(), &HotkeyManager::pressed, this,
            [this](HotkeyAction action) { m_pressed << action; });
}

void HotkeyManagerTest::cleanup()
{
    m_manager.reset();
    Log::setSinkForTesting({});
}

void HotkeyManagerTest::press(HotkeyAction action)
{
    const QString combo = m_manager->activeHotkeys().value(hotkeyAction(action).jsonKey);
    QVERIFY(m_platform.pressCombo(HotkeyCombo::parse(combo).value()));
    QCoreApplication::processEvents();
}

HotkeyManager::ProblemSink HotkeyManagerTest::problemSink()
{
    return [this](const HotkeyId &action, const QString &line) {
        if (line.isEmpty()) {
            m_standing.remove(action);
        } else {
            m_problems << line;
            m_standing.insert(action, line);
        }
    };
}

void HotkeyManagerTest::startRegistersTheActionsInOrder()
{
    m_manager->start({});
    const QList<QKeyCombination> expected{
        ctrlAltCmd | Qt::Key_C,
        ctrlAltCmd | Qt::Key_X,
        ctrlAltCmd | Qt::Key_T,
        ctrlAltCmd | Qt::Key_BracketRight,
        ctrlAltCmd | Qt::Key_BracketLeft,
        ctrlAltCmd | Qt::ShiftModifier | Qt::Key_C,
        Qt::META | Qt::Key_N,
    };
    QCOMPARE(m_platform.attempts, expected);
    QCOMPARE(m_platform.installs, 1);
    QCOMPARE(m_log, (QStringList{
                        QStringLiteral("[HotkeyManager] Registered Capture -> ctrl+alt+cmd+c"),
                        QStringLiteral("[HotkeyManager] Registered Clear -> ctrl+alt+cmd+x"),
                        QStringLiteral("[HotkeyManager] Registered Toggle -> ctrl+alt+cmd+t"),
                        QStringLiteral("[HotkeyManager] Registered Opacity Up -> ctrl+alt+cmd+]"),
                        QStringLiteral("[HotkeyManager] Registered Opacity Down -> ctrl+alt+cmd+["),
                        QStringLiteral("[HotkeyManager] Registered Capture (No Send) -> "
                                       "ctrl+alt+cmd+shift+c"),
                        QStringLiteral("[HotkeyManager] Registered New Thread -> cmd+n"),
                    }));
    QCOMPARE(m_manager->activeHotkeys(),
             (QMap<QString, QString>{
                 {QStringLiteral("capture"), QStringLiteral("ctrl+alt+cmd+c")},
                 {QStringLiteral("clear"), QStringLiteral("ctrl+alt+cmd+x")},
                 {QStringLiteral("toggle"), QStringLiteral("ctrl+alt+cmd+t")},
                 {QStringLiteral("opacity_up"), QStringLiteral("ctrl+alt+cmd+]")},
                 {QStringLiteral("opacity_down"), QStringLiteral("ctrl+alt+cmd+[")},
                 {QStringLiteral("capture_no_send"), QStringLiteral("ctrl+alt+cmd+shift+c")},
                 {QStringLiteral("new_thread"), QStringLiteral("cmd+n")},
             }));
    QCOMPARE(m_problems, QStringList());
}

void HotkeyManagerTest::eachPressIsReportedOnce()
{
    HotkeyCombos hotkeys;
    char letter = 'a';
    for (const HotkeyActionInfo &row : hotkeyActions)
        hotkeys[row.action] = QStringLiteral("cmd+") + QLatin1Char(letter++);
    m_manager->start(hotkeys);
    for (const HotkeyActionInfo &row : hotkeyActions) {
        m_log.clear();
        m_pressed.clear();
        press(row.action);
        QCOMPARE(m_pressed, QList{row.action});
        QCOMPARE(m_log, QStringList{QStringLiteral("[HotkeyManager] Fired: ") + row.logName});
    }
}

void HotkeyManagerTest::pressesAreReportedFromTheEventLoop()
{
    m_manager->start({});
    QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_T));
    QCOMPARE(m_log.last(), QStringLiteral("[HotkeyManager] Fired: Toggle"));
    QVERIFY(m_pressed.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::Toggle});
}

void HotkeyManagerTest::latePressesAreDroppedWithTheManager()
{
    m_manager->start({});
    const auto lateHandler = m_platform.handler;
    const auto registration = m_platform.registered.key(ctrlAltCmd | Qt::Key_T);
    m_platform.press(registration);
    m_manager.reset();
    lateHandler(registration);
    QCoreApplication::processEvents();
    QVERIFY(m_pressed.isEmpty());
}

void HotkeyManagerTest::ignoresUnknownRegistrations()
{
    m_manager->start({});
    m_log.clear();
    for (const GlobalHotkeys::Registration unknown : {0U, 8U, 0xFFFFFFFFU})
        m_platform.press(unknown);
    QCoreApplication::processEvents();
    QVERIFY(m_pressed.isEmpty());
    QCOMPARE(m_log, QStringList());
}

void HotkeyManagerTest::debouncesPerAction()
{
    m_manager->start({});
    press(HotkeyAction::Capture);
    m_now += 200ms;
    press(HotkeyAction::Capture);
    QCOMPARE(m_pressed.size(), 1);
    QCOMPARE(m_log.last(),
             QStringLiteral("[HotkeyManager] Ignored re-fire of Capture within debounce window"));
    m_now += 150ms;
    press(HotkeyAction::Capture);
    QCOMPARE(m_pressed.size(), 2);
    QCOMPARE(m_log.last(), QStringLiteral("[HotkeyManager] Fired: Capture"));
    m_now += 299ms;
    press(HotkeyAction::Capture);
    QCOMPARE(m_pressed.size(), 2);
    m_now += 1ms;
    press(HotkeyAction::Capture);
    QCOMPARE(m_pressed.size(), 3);
}

void HotkeyManagerTest::ignoredPressDoesNotMoveTheDebounce()
{
    m_manager->start({});
    // A key repeating every 50 ms for 1.2 s: accepted at 0, 0.3, 0.6, 0.9 and 1.2 s.
    for (int press50 = 0; press50 <= 24; ++press50) {
        press(HotkeyAction::OpacityUp);
        m_now += 50ms;
    }
    QCOMPARE(m_pressed.size(), 5);
}

void HotkeyManagerTest::differentActionsDoNotDebounceEachOther()
{
    m_manager->start({});
    press(HotkeyAction::OpacityUp);
    m_now += 100ms;
    press(HotkeyAction::OpacityDown);
    QCOMPARE(m_pressed, (QList{HotkeyAction::OpacityUp, HotkeyAction::OpacityDown}));
}

void HotkeyManagerTest::unsupportedCombosAreReported_data()
{
    QTest::addColumn<QString>("combo");
    QTest::addColumn<QString>("display");
    QTest::newRow("no key") << QStringLiteral("ctrl+alt") << QStringLiteral("Ctrl+Option");
    QTest::newRow("unknown key") << QStringLiteral("ctrl+f5") << QStringLiteral("Ctrl+F5");
    QTest::newRow("plus signs only") << QStringLiteral("++") << QString();
    QTest::newRow("blank") << QStringLiteral(" ") << QStringLiteral(" ");
}

void HotkeyManagerTest::unsupportedCombosAreReported()
{
    QFETCH(QString, combo);
    QFETCH(QString, display);
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::CaptureNoSend] = combo;
    m_manager->start(hotkeys);
    QVERIFY(m_log.contains(
        QStringLiteral("[HotkeyManager] ERROR: Unsupported hotkey combo '%1' for Capture (No Send) "
                       "— no virtual keycode mapping for its key, skipping registration")
            .arg(combo)));
    QCOMPARE(m_problems,
             QStringList{QStringLiteral("**Capture (No Send) (%1) could not be registered** — "
                                        "unsupported key.")
                             .arg(display)});
    QCOMPARE(m_platform.registered.size(), 6);
    QVERIFY(!m_manager->activeHotkeys().contains(QStringLiteral("capture_no_send")));
}

void HotkeyManagerTest::anUnsetActionIsNoProblem()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::CaptureNoSend].clear();
    hotkeys[HotkeyAction::Toggle].clear();
    m_manager->start(hotkeys);
    QCOMPARE(m_platform.attempts.size(), 5);
    QCOMPARE(m_platform.registered.size(), 5);
    QCOMPARE(m_problems, QStringList());
    QCOMPARE(m_log.size(), 5);
    QVERIFY(m_log.filter(QStringLiteral("ERROR")).isEmpty());
    QCOMPARE(m_manager->activeHotkeys().keys(),
             (QStringList{"capture", "clear", "new_thread", "opacity_down", "opacity_up"}));
    // Suspending and resuming does not change it.
    m_manager->suspendAll();
    m_manager->resume(hotkeys);
    QCOMPARE(m_platform.registered.size(), 5);
    QCOMPARE(m_problems, QStringList());
}

void HotkeyManagerTest::anActionIsUnsetAndSetLive()
{
    m_manager->start({});
    m_log.clear();
    QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QString()));
    QCOMPARE(m_platform.registered.size(), 6);
    QVERIFY(!m_platform.pressCombo(ctrlAltCmd | Qt::Key_T));
    QVERIFY(!m_manager->activeHotkeys().contains(QStringLiteral("toggle")));
    QCOMPARE(m_log, QStringList());
    QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QStringLiteral("cmd+u")));
    QVERIFY(m_platform.pressCombo(Qt::META | Qt::Key_U));
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::Toggle});
    QCOMPARE(m_problems, QStringList());
}

void HotkeyManagerTest::unsettingWithdrawsAProblem()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    m_manager->start({});
    QCOMPARE(m_standing.keys(), QList<HotkeyId>{HotkeyAction::Toggle});
    QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QString()));
    QVERIFY(m_standing.isEmpty());
}

void HotkeyManagerTest::unsettingFreesTheCombo()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Toggle] = hotkeys[HotkeyAction::Clear];
    m_manager->start(hotkeys);
    QVERIFY(m_manager->updateHotkey(QStringLiteral("clear"), QString()));
    QVERIFY(m_standing.isEmpty());
    QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_X));
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::Toggle});
}

void HotkeyManagerTest::aFailedChangeOfAnUnsetActionLeavesNoProblem()
{
    m_platform.claim(Qt::META | Qt::Key_U);
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Clear].clear();
    m_manager->start(hotkeys);
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("clear"), QStringLiteral("cmd+u")));
    QCOMPARE(m_problems.size(), 1);
    QVERIFY(m_standing.isEmpty());
    QCOMPARE(m_platform.registered.size(), 6);
}

void HotkeyManagerTest::takenComboIsReportedAndLeavesTheOthers()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T, {GlobalHotkeys::Failure::Kind::Taken, 10});
    m_manager->start({});
    QVERIFY(m_log.contains(
        QStringLiteral("[HotkeyManager] ERROR: Failed to register Toggle (ctrl+alt+cmd+t), "
                       "OSStatus 10 — likely already claimed by another app")));
    QCOMPARE(m_problems,
             QStringList{QStringLiteral(
                 "**Ctrl+Option+Cmd+T (Toggle) is unavailable** — already in use by another app. "
                 "Use the Prompt panel buttons instead, or free up that shortcut and relaunch.")});
    QCOMPARE(m_platform.registered.size(), 6);
    QCOMPARE(m_manager->activeHotkeys().size(), 6);
    QVERIFY(!m_manager->activeHotkeys().contains(QStringLiteral("toggle")));
}

void HotkeyManagerTest::aKeyThatTheSystemLacksIsUnsupported()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T, {GlobalHotkeys::Failure::Kind::UnsupportedKey, 2});
    m_manager->start({});
    QVERIFY(m_log.contains(
        QStringLiteral("[HotkeyManager] ERROR: Failed to register Toggle (ctrl+alt+cmd+t), "
                       "OSStatus 2 — likely already claimed by another app")));
    QCOMPARE(m_problems, QStringList{QStringLiteral("**Toggle (Ctrl+Option+Cmd+T) could not be "
                                                    "registered** — unsupported key.")});
}

void HotkeyManagerTest::stopReleasesEverything()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    m_manager->start({});
    m_log.clear();
    m_manager->stop();
    QVERIFY(m_platform.registered.isEmpty());
    QCOMPARE(m_platform.unregistrations, 6);
    QCOMPARE(m_platform.unknownUnregistrations, 0);
    QCOMPARE(m_platform.removals, 1);
    QVERIFY(m_manager->activeHotkeys().isEmpty());
    QCOMPARE(m_log,
             QStringList{QStringLiteral("[HotkeyManager] Stopped, all hotkeys unregistered")});
    m_manager->stop();
    QCOMPARE(m_platform.removals, 1);
    QCOMPARE(m_platform.unknownUnregistrations, 0);
}

void HotkeyManagerTest::suspendKeepsTheHandler()
{
    m_manager->start({});
    m_log.clear();
    m_manager->suspendAll();
    QVERIFY(m_platform.registered.isEmpty());
    QCOMPARE(m_platform.removals, 0);
    QVERIFY(m_platform.handler);
    QVERIFY(m_manager->activeHotkeys().isEmpty());
    QCOMPARE(m_log,
             QStringList{QStringLiteral("[HotkeyManager] Suspended all hotkeys for capture")});
}

void HotkeyManagerTest::resumeRegistersAgain()
{
    m_manager->start({});
    m_manager->suspendAll();
    m_log.clear();
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Clear] = QStringLiteral("alt+k");
    m_manager->resume(hotkeys);
    QCOMPARE(m_log.size(), 8);
    QCOMPARE(m_log.at(1), QStringLiteral("[HotkeyManager] Registered Clear -> alt+k"));
    QCOMPARE(m_log.last(), QStringLiteral("[HotkeyManager] Resumed all hotkeys after capture"));
    QCOMPARE(m_platform.registered.size(), 7);
    QCOMPARE(m_platform.installs, 1);
    QVERIFY(m_platform.pressCombo(Qt::ALT | Qt::Key_K));
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::Clear});
}

void HotkeyManagerTest::startAgainAfterStop()
{
    m_manager->start({});
    m_manager->stop();
    m_manager->start({});
    QCOMPARE(m_platform.registered.size(), 7);
    press(HotkeyAction::NewThread);
    QCOMPARE(m_pressed, QList{HotkeyAction::NewThread});
}

void HotkeyManagerTest::repeatedStartLeaksNothing()
{
    m_manager->start({});
    m_manager->start({});
    QCOMPARE(m_platform.registered.size(), 7);
    m_manager->stop();
    QVERIFY(m_platform.registered.isEmpty());
}

void HotkeyManagerTest::updateBindsAnew()
{
    m_manager->start({});
    m_log.clear();
    QVERIFY(m_manager->updateHotkey(QStringLiteral("opacity_up"), QStringLiteral("CMD+Alt+U")));
    QCOMPARE(m_log,
             QStringList{QStringLiteral("[HotkeyManager] Registered Opacity Up -> CMD+Alt+U")});
    QCOMPARE(m_manager->activeHotkeys().value(QStringLiteral("opacity_up")),
             QStringLiteral("CMD+Alt+U"));
    QCOMPARE(m_platform.registered.size(), 7);
    QVERIFY(!m_platform.pressCombo(ctrlAltCmd | Qt::Key_BracketRight));
    QVERIFY(m_platform.pressCombo(Qt::META | Qt::ALT | Qt::Key_U));
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::OpacityUp});
    QCOMPARE(m_problems, QStringList());
}

void HotkeyManagerTest::updateOfUnknownKeyChangesNothing()
{
    m_manager->start({});
    const auto before = m_manager->activeHotkeys();
    const auto registered = m_platform.registered;
    m_log.clear();
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("opacity-up"), QStringLiteral("cmd+u")));
    QCOMPARE(m_log, QStringList{QStringLiteral("[HotkeyManager] ERROR: updateHotkey called with "
                                               "unknown jsonKey 'opacity-up'")});
    QCOMPARE(m_manager->activeHotkeys(), before);
    QCOMPARE(m_platform.registered, registered);
}

void HotkeyManagerTest::updateRollsBack()
{
    m_platform.claim(Qt::META | Qt::Key_U);
    m_manager->start({});
    m_log.clear();
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("opacity_up"), QStringLiteral("cmd+u")));
    QCOMPARE(m_log,
             (QStringList{
                 QStringLiteral("[HotkeyManager] ERROR: Failed to register Opacity Up (cmd+u), "
                                "OSStatus -9878 — likely already claimed by another app"),
                 QStringLiteral("[HotkeyManager] 'cmd+u' failed to register for Opacity Up — "
                                "rolling back to previous combo 'ctrl+alt+cmd+]'"),
                 QStringLiteral("[HotkeyManager] Registered Opacity Up -> ctrl+alt+cmd+]"),
             }));
    QCOMPARE(m_manager->activeHotkeys().value(QStringLiteral("opacity_up")),
             QStringLiteral("ctrl+alt+cmd+]"));
    QCOMPARE(m_platform.registered.size(), 7);
    QCOMPARE(m_problems.size(), 1);
    QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_BracketRight));
}

void HotkeyManagerTest::updateRollsBackFromUnsupportedCombo()
{
    m_manager->start({});
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("clear"), QStringLiteral("ctrl+f5")));
    QCOMPARE(m_manager->activeHotkeys().value(QStringLiteral("clear")),
             QStringLiteral("ctrl+alt+cmd+x"));
    QCOMPARE(m_problems, QStringList{QStringLiteral("**Clear (Ctrl+F5) could not be registered** — "
                                                    "unsupported key.")});
}

void HotkeyManagerTest::updateWithoutPreviousComboJustFails()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    m_platform.claim(Qt::META | Qt::Key_U);
    m_manager->start({});
    m_log.clear();
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("toggle"), QStringLiteral("cmd+u")));
    QCOMPARE(m_log.size(), 1);
    QVERIFY(!m_manager->activeHotkeys().contains(QStringLiteral("toggle")));

    m_platform.release(Qt::META | Qt::Key_U);
    QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QStringLiteral("cmd+u")));
    QCOMPARE(m_platform.registered.size(), 7);
}

void HotkeyManagerTest::problemsAreNamedInTheSystemsWords()
{
    m_manager = std::make_unique<HotkeyManager>(
        m_platform, Vocabulary::linuxDesktop(), [this] { return m_now; }, problemSink());
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::NewThread] = QStringLiteral("alt+cmd+f5");
    m_manager->start(hotkeys);
    QCOMPARE(m_problems,
             (QStringList{
                 QStringLiteral(
                     "**Ctrl+Alt+Super+T (Toggle) is unavailable** — already in use by another "
                     "app. Use the Prompt panel buttons instead, or free up that shortcut and "
                     "relaunch."),
                 QStringLiteral("**New Thread (Alt+Super+F5) could not be registered** — "
                                "unsupported key."),
             }));
}

void HotkeyManagerTest::aComboOfOurOwnIsNamedByItsRow()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Toggle] = hotkeys[HotkeyAction::Clear];
    m_manager->start(hotkeys);
    QCOMPARE(m_standing,
             (QMap<HotkeyId, QString>{
                 {HotkeyAction::Toggle,
                  QStringLiteral("**Ctrl+Option+Cmd+X (Toggle) is unavailable** — already used by "
                                 "Clear the response area. Choose another shortcut for one of the "
                                 "two in Settings.")}}));
    // Held by another program, it is the other program's.
    m_manager->stop();
    m_platform.claim(ctrlAltCmd | Qt::Key_X);
    m_manager->start(hotkeys);
    QCOMPARE(m_standing.size(), 2);
    for (const QString &line : std::as_const(m_standing))
        QVERIFY2(line.contains(QStringLiteral("already in use by another app")), qPrintable(line));
}

void HotkeyManagerTest::aComboOfOurOwnIsFoundHoweverItIsWritten()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::NewThread] = QStringLiteral("Command+Control+OPTION+x");
    m_manager->start(hotkeys);
    QVERIFY(m_standing.value(HotkeyAction::NewThread)
                .contains(QStringLiteral("(New Thread) is unavailable** — already used by Clear "
                                         "the response area.")));
}

void HotkeyManagerTest::theNameOfWhoAnswersIsKeptUpToDate()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Clear] = hotkeys[HotkeyAction::Capture];
    hotkeys[HotkeyAction::NewThread] = QStringLiteral("f5");
    m_manager->start(hotkeys);
    QVERIFY(m_standing.value(HotkeyAction::Clear)
                .contains(QStringLiteral("used by Capture screen and send to Claude. Choose")));
    m_manager->setAnswererName(QStringLiteral("Offline reader"));
    QVERIFY(m_standing.value(HotkeyAction::Clear)
                .contains(QStringLiteral("used by Capture screen and send to Offline reader. "
                                         "Choose")));
    QCOMPARE(m_standing.size(), 2);
    const qsizetype reported = m_problems.size();
    m_manager->setAnswererName(QStringLiteral("Offline reader"));
    QCOMPARE(m_problems.size(), reported);
}

void HotkeyManagerTest::repeatedRegistrationReportsAProblemOnce()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    m_manager->start({});
    const auto standing = m_standing;
    QCOMPARE(standing.size(), 1);
    for (int recording = 0; recording < 3; ++recording) {
        m_manager->suspendAll();
        m_manager->resume({});
    }
    m_manager->stop();
    m_manager->start({});
    QCOMPARE(m_standing, standing);
}

void HotkeyManagerTest::aSolvedProblemIsWithdrawn()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_T);
    m_platform.claim(ctrlAltCmd | Qt::Key_X);
    m_manager->start({});
    QCOMPARE(m_standing.keys(), (QList<HotkeyId>{HotkeyAction::Clear, HotkeyAction::Toggle}));
    // The one gets another combo, the other program lets go of the other.
    QVERIFY(m_manager->updateHotkey(QStringLiteral("toggle"), QStringLiteral("cmd+u")));
    QCOMPARE(m_standing.keys(), QList<HotkeyId>{HotkeyAction::Clear});
    m_platform.release(ctrlAltCmd | Qt::Key_X);
    m_manager->suspendAll();
    m_manager->resume({});
    QCOMPARE(m_standing.keys(), QList<HotkeyId>{HotkeyAction::Toggle});
    m_platform.release(ctrlAltCmd | Qt::Key_T);
    m_manager->stop();
    m_manager->start({});
    QVERIFY(m_standing.isEmpty());
}

void HotkeyManagerTest::aFailedChangeLeavesNoProblemBehind()
{
    m_platform.claim(Qt::META | Qt::Key_U);
    m_manager->start({});
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("clear"), QStringLiteral("cmd+u")));
    QCOMPARE(m_problems.size(), 1);
    QVERIFY(m_standing.isEmpty());
}

void HotkeyManagerTest::aFailedChangeLeavesTheProblemBeforeIt()
{
    m_platform.claim(ctrlAltCmd | Qt::Key_X);
    m_platform.claim(Qt::META | Qt::Key_U);
    m_manager->start({});
    const auto standing = m_standing;
    QVERIFY(!m_manager->updateHotkey(QStringLiteral("clear"), QStringLiteral("cmd+u")));
    QCOMPARE(m_standing, standing);
}

void HotkeyManagerTest::aFreedComboGoesToWhoeverLackedIt()
{
    HotkeyCombos hotkeys;
    hotkeys[HotkeyAction::Clear] = hotkeys[HotkeyAction::Capture];
    hotkeys[HotkeyAction::NewThread] = hotkeys[HotkeyAction::Capture];
    m_manager->start(hotkeys);
    QCOMPARE(m_standing.keys(), (QList<HotkeyId>{HotkeyAction::Clear, HotkeyAction::NewThread}));
    m_log.clear();
    QVERIFY(m_manager->updateHotkey(QStringLiteral("capture"), QStringLiteral("cmd+u")));
    QCOMPARE(m_log.first(), QStringLiteral("[HotkeyManager] Registered Capture -> cmd+u"));
    QCOMPARE(m_log.at(1), QStringLiteral("[HotkeyManager] Registered Clear -> ctrl+alt+cmd+c"));
    QVERIFY(m_platform.pressCombo(ctrlAltCmd | Qt::Key_C));
    QCoreApplication::processEvents();
    QCOMPARE(m_pressed, QList{HotkeyAction::Clear});
    QCOMPARE(m_standing.keys(), QList<HotkeyId>{HotkeyAction::NewThread});
    QVERIFY(m_standing.first().contains(QStringLiteral("already used by Clear the response area")));
}

void HotkeyManagerTest::destructionReleasesEverything()
{
    m_manager->start({});
    m_log.clear();
    m_manager.reset();
    QVERIFY(m_platform.registered.isEmpty());
    QCOMPARE(m_platform.removals, 1);
    QCOMPARE(m_log, QStringList());
}

QUELLORA_TEST(QCoreApplication, HotkeyManagerTest)
#include "test_hotkey_manager.moc"
