#include "base/UserDefaults.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/HotkeyRebinding.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

constexpr Qt::KeyboardModifiers ctrl = Qt::ControlModifier;
constexpr Qt::KeyboardModifiers alt = Qt::AltModifier;
constexpr Qt::KeyboardModifiers cmd = Qt::MetaModifier;
constexpr Qt::KeyboardModifiers shift = Qt::ShiftModifier;

const QString prefix = QStringLiteral("[OverlayWindowController] ");
const QString resumed = QStringLiteral("[HotkeyManager] Resumed all hotkeys after capture");
const QString suspended = QStringLiteral("[HotkeyManager] Suspended all hotkeys for capture");

struct Fixture
{
    explicit Fixture(const HotkeyCombos &given = {}) : file(given)
    {
        manager.start(HotkeyBindings::loadEffective(file, defaults));
        make();
    }
    void make()
    {
        rebinding = std::make_unique<HotkeyRebinding>(manager, defaults, keys, file);
        log.clear();
    }
    QMap<QString, QString> stored() const
    {
        return defaults.stringDictionary("hotkeyBindings").value_or(QMap<QString, QString>());
    }
    bool isRegistered(const QString &combo) const
    {
        return platform.isRegistered(HotkeyCombo::parse(combo).value());
    }

    LogCapture log;
    FakeGlobalHotkeys platform;
    JsonUserDefaults defaults;
    FakeKeyMonitor keys;
    HotkeyCombos file;
    HotkeyManager manager{platform, Vocabulary::macOS(), &std::chrono::steady_clock::now,
                          [](const HotkeyId &, const QString &) {}};
    std::unique_ptr<HotkeyRebinding> rebinding;
};

} // namespace

class TestHotkeyRebinding : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void comboText_data()
    {
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        QTest::addColumn<QString>("character");
        QTest::addColumn<QString>("combo");
        QTest::newRow("all four") << (ctrl | alt | cmd | shift) << "c"
                                  << "ctrl+alt+cmd+shift+c";
        QTest::newRow("one") << cmd << "n"
                             << "cmd+n";
        QTest::newRow("shift alone") << shift << "a"
                                     << "shift+a";
        QTest::newRow("upper case") << ctrl << "C"
                                    << "ctrl+c";
        QTest::newRow("digit") << (cmd | shift) << "3"
                               << "cmd+shift+3";
        QTest::newRow("bare key") << Qt::KeyboardModifiers() << "c" << QString();
        QTest::newRow("modifier alone") << ctrl << "" << QString();
        QTest::newRow("space") << cmd << " " << QString();
        QTest::newRow("tab") << cmd << "\t" << QString();
        QTest::newRow("plus") << cmd << "+" << QString();
        QTest::newRow("exclamation mark") << cmd << "!" << QString();
        QTest::newRow("superscript two") << cmd << QString(QChar(0xb2)) << QString();
        QTest::newRow("two characters") << cmd << "ab" << QString();
        QTest::newRow("other letter")
            << cmd << QString(QChar(0xf6)) << "cmd+" + QString(QChar(0xf6));
        for (const QChar mark : QStringLiteral("[]-=;',./\\`"))
            QTest::newRow(qPrintable(QString(mark)))
                << ctrl << QString(mark) << "ctrl+" + QString(mark);
    }
    void comboText()
    {
        QFETCH(Qt::KeyboardModifiers, modifiers);
        QFETCH(QString, character);
        QFETCH(QString, combo);
        QCOMPARE(
            HotkeyRebinding::captureComboString({modifiers, character, false}).value_or(QString()),
            combo);
    }

    void everyBindableKeyCanBeRecorded()
    {
        for (const QChar key : HotkeyCombo::bindableKeys) {
            const auto combo = HotkeyRebinding::captureComboString({cmd, key, false});
            QVERIFY2(combo && HotkeyCombo::parse(*combo), qPrintable(QString(key)));
        }
    }

    void systemShortcuts()
    {
        const auto &table = HotkeyRebinding::knownSystemShortcuts();
        const QList<std::pair<QString, QString>> expected{
            {"cmd+space", "Spotlight Search"},
            {"ctrl+cmd+space", "Emoji & Symbols picker"},
            {"cmd+tab", "App Switcher"},
            {"cmd+shift+3", "Screenshot (full screen)"},
            {"cmd+shift+4", "Screenshot (selection)"},
            {"cmd+shift+5", "Screenshot & Recording tools"},
            {"ctrl+cmd+q", "Lock Screen"},
            {"cmd+h", "Hide application"},
            {"cmd+m", "Minimize window"},
            {"cmd+q", "Quit application"},
            {"cmd+shift+q", "Log Out"},
            {"cmd+comma", "App Preferences"},
        };
        QCOMPARE(QList(table.begin(), table.end()), expected);
    }

    void startsWithTheStoredOverrides()
    {
        Fixture f;
        f.defaults.setStringDictionary("hotkeyBindings", {{"clear", "ctrl+k"}});
        f.make();
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Clear], "ctrl+k");
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Capture], "ctrl+alt+cmd+c");
        QCOMPARE(f.rebinding->configFileHotkeys()[HotkeyAction::Clear], "ctrl+alt+cmd+x");
    }

    void recordingSuspendsAndTakesTheKeys()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        QCOMPARE(f.rebinding->capturingHotkeyAction(), HotkeyAction::Clear);
        QVERIFY(f.platform.registered.isEmpty());
        QVERIFY(f.keys.isInstalled());
        QCOMPARE(f.log.lines,
                 (QStringList{suspended,
                              prefix + "Hotkey capture started for Clear the response area"}));
    }

    void aComboIsAppliedStoredAndLive()
    {
        Fixture f;
        QSignalSpy bindings(f.rebinding.get(), &HotkeyRebinding::hotkeysConfigChanged);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.log.clear();
        f.keys.press(ctrl | alt | cmd | shift, "k");
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.keys.isInstalled());
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Capture], "ctrl+alt+cmd+shift+k");
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"capture", "ctrl+alt+cmd+shift+k"}}));
        QVERIFY(f.isRegistered("ctrl+alt+cmd+shift+k"));
        QVERIFY(!f.isRegistered("ctrl+alt+cmd+c"));
        QCOMPARE(f.platform.registered.size(), 7);
        QCOMPARE(bindings.size(), 1);
        // The old bindings come back first, then the one changes.
        const int back = int(f.log.lines.indexOf(resumed));
        const int live =
            int(f.log.lines.indexOf("[HotkeyManager] Registered Capture -> ctrl+alt+cmd+shift+k"));
        QVERIFY(back >= 0 && live > back);
        QCOMPARE(f.log.lines.last(),
                 prefix + "Hotkey Capture screen and send to Claude -> ctrl+alt+cmd+shift+k, "
                          "persisted + registered live");
    }

    void otherOverridesStayStored()
    {
        Fixture f;
        f.defaults.setStringDictionary("hotkeyBindings", {{"clear", "ctrl+k"}});
        f.make();
        f.rebinding->beginCapturingHotkey(HotkeyAction::NewThread);
        f.keys.press(ctrl | alt, "n");
        QCOMPARE(f.stored(),
                 (QMap<QString, QString>{{"clear", "ctrl+k"}, {"new_thread", "ctrl+alt+n"}}));
    }

    void keysWithoutAComboAreIgnored()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        QSignalSpy changed(f.rebinding.get(), &HotkeyRebinding::changed);
        f.log.clear();
        f.keys.press({}, "c");
        f.keys.press(ctrl, QString());
        f.keys.press(cmd, " ");
        QCOMPARE(f.rebinding->capturingHotkeyAction(), HotkeyAction::Clear);
        QVERIFY(f.keys.isInstalled());
        QVERIFY(f.log.lines.isEmpty());
        QCOMPARE(changed.size(), 0);
    }

    void theActionsOwnComboIsNoDuplicate()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt | cmd, "x");
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.rebinding->hotkeyRollbackMessage());
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"clear", "ctrl+alt+cmd+x"}}));
        QVERIFY(f.isRegistered("ctrl+alt+cmd+x"));
    }

    void anotherActionsComboIsRefused()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        const qsizetype attempts = f.platform.attempts.size();
        f.keys.press(ctrl | alt | cmd, "x");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Clear the response area. Try a different combo.");
        QCOMPARE(f.rebinding->capturingHotkeyAction(), HotkeyAction::Capture);
        QCOMPARE(f.platform.attempts.size(), attempts);
        QVERIFY(f.stored().isEmpty());
        // A key that is no combo leaves the error; the next combo clears it.
        f.keys.press({}, "c");
        QVERIFY(f.rebinding->hotkeyCaptureError());
        f.keys.press(cmd, "h");
        QVERIFY(!f.rebinding->hotkeyCaptureError());
        QVERIFY(f.rebinding->pendingSystemConflict());
    }

    void anotherActionsComboIsFoundHoweverItIsWritten()
    {
        Fixture f;
        f.file[HotkeyAction::Clear] = "Command+X";
        f.file[HotkeyAction::Toggle] = "cmd+nonsense";
        f.make();
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.press(cmd, "x");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Clear the response area. Try a different combo.");
    }

    void titlesNameWhoAnswers()
    {
        Fixture f;
        QCOMPARE(f.rebinding->title(HotkeyAction::Capture), "Capture screen and send to Claude");
        QSignalSpy changed(f.rebinding.get(), &HotkeyRebinding::changed);
        f.rebinding->setAnswererName("Offline reader");
        QCOMPARE(changed.size(), 1);
        QCOMPARE(f.rebinding->title(HotkeyAction::Capture),
                 "Capture screen and send to Offline reader");
        QCOMPARE(f.rebinding->title(HotkeyAction::CaptureNoSend), "Capture (no send)");
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        // Log lines keep the given title.
        QVERIFY(f.log.lines.last().endsWith("started for Clear the response area"));
        f.keys.press(ctrl | alt | cmd, "c");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Capture screen and send to Offline reader. Try a different "
                 "combo.");
        // What is on show follows at once.
        f.rebinding->setAnswererName("Claude");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Capture screen and send to Claude. Try a different combo.");
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        QCOMPARE(f.log.lines.last(),
                 prefix + "Hotkey capture started for Capture screen and send to Claude");
    }

    void aChangedComboCountsForDuplicates()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        f.keys.press(ctrl | alt, "m");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Clear the response area. Try a different combo.");
        // What it was before is free.
        f.keys.press(ctrl | alt | cmd, "x");
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Toggle], "ctrl+alt+cmd+x");
    }

    void systemShortcutAsksFirst()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.log.clear();
        f.keys.press(cmd | shift, "3");
        QCOMPARE(f.rebinding->pendingSystemConflict(),
                 (HotkeyRebinding::Conflict{"cmd+shift+3", "Screenshot (full screen)"}));
        QCOMPARE(f.log.lines,
                 QStringList{prefix + "Hotkey capture: 'cmd+shift+3' may conflict with system "
                                      "shortcut 'Screenshot (full screen)' — awaiting "
                                      "confirmation"});
        // Only Escape counts now.
        f.keys.press(ctrl | alt, "m");
        QVERIFY(f.rebinding->pendingSystemConflict());
        QVERIFY(f.stored().isEmpty());
        f.rebinding->confirmSystemConflict();
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Capture], "cmd+shift+3");
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.rebinding->pendingSystemConflict());
        QVERIFY(f.isRegistered("cmd+shift+3"));
    }

    void droppedConflictKeepsRecording()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.press(cmd, "q");
        f.log.clear();
        QSignalSpy changed(f.rebinding.get(), &HotkeyRebinding::changed);
        f.rebinding->cancelPendingSystemConflict();
        QVERIFY(!f.rebinding->pendingSystemConflict());
        QCOMPARE(changed.size(), 1);
        QVERIFY(f.log.lines.isEmpty());
        f.keys.press(ctrl | alt, "m");
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Capture], "ctrl+alt+m");
    }

    void escapeEndsAPendingConflict()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.press(cmd, "q");
        f.keys.pressEscape();
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.rebinding->pendingSystemConflict());
        QVERIFY(f.isRegistered("ctrl+alt+cmd+c"));
    }

    void escapeEndsRecordingWithoutChanges()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.press(ctrl | alt | cmd, "x");
        f.keys.pressEscape();
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.rebinding->hotkeyCaptureError());
        QVERIFY(!f.keys.isInstalled());
        QCOMPARE(f.log.lines.last(), resumed);
        QCOMPARE(f.platform.registered.size(), 7);
        QVERIFY(f.isRegistered("ctrl+alt+cmd+c"));
        QVERIFY(f.stored().isEmpty());
    }

    void losingTheKeyboardEndsRecording()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.loseKeyboard();
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QCOMPARE(f.log.lines.last(), resumed);
    }

    void cancellingNothingSaysNothing()
    {
        Fixture f;
        QSignalSpy changed(f.rebinding.get(), &HotkeyRebinding::changed);
        f.rebinding->cancelHotkeyCapture();
        f.rebinding->confirmSystemConflict();
        f.rebinding->cancelPendingSystemConflict();
        QVERIFY(f.log.lines.isEmpty());
        QCOMPARE(changed.size(), 0);
    }

    void anotherRowStartsAnew()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Capture);
        f.keys.press(ctrl | alt | cmd, "x");
        f.log.clear();
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        QCOMPARE(f.rebinding->capturingHotkeyAction(), HotkeyAction::Toggle);
        QVERIFY(!f.rebinding->hotkeyCaptureError());
        QCOMPARE(f.keys.installs, 2);
        const QStringList tail = f.log.lines.mid(f.log.lines.indexOf(resumed));
        QCOMPARE(tail, (QStringList{resumed, suspended,
                                    prefix + "Hotkey capture started for Toggle overlay "
                                             "visibility"}));
    }

    void aComboThatAnotherProgramHoldsRollsBack()
    {
        Fixture f;
        f.platform.claim(ctrl | alt | Qt::Key_M);
        QSignalSpy bindings(f.rebinding.get(), &HotkeyRebinding::hotkeysConfigChanged);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        QCOMPARE(
            f.rebinding->hotkeyRollbackMessage(),
            (HotkeyRebinding::Rollback{HotkeyAction::Clear,
                                       "Couldn't register that combo — kept your previous one."}));
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Clear], "ctrl+alt+cmd+x");
        QVERIFY(f.isRegistered("ctrl+alt+cmd+x"));
        QVERIFY(f.stored().isEmpty());
        QCOMPARE(bindings.size(), 0);
        QCOMPARE(f.log.lines.last(),
                 prefix + "Hotkey Clear the response area -> ctrl+alt+m FAILED to register — "
                          "rolled back, not persisted");
        // The next attempt takes the message away.
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        QVERIFY(!f.rebinding->hotkeyRollbackMessage());
    }

    void rollbackKeepsTheEarlierOverride()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        f.platform.claim(ctrl | alt | Qt::Key_K);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "k");
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"clear", "ctrl+alt+m"}}));
        QVERIFY(f.isRegistered("ctrl+alt+m"));
    }

    void resetOfOneAction()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        f.rebinding->resetHotkey(HotkeyAction::Clear);
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Clear], "ctrl+alt+cmd+x");
        QVERIFY(f.isRegistered("ctrl+alt+cmd+x"));
        QVERIFY(!f.isRegistered("ctrl+alt+m"));
        // The dictionary stays, empty.
        QCOMPARE(f.defaults.stringDictionary("hotkeyBindings"), (QMap<QString, QString>()));
        QCOMPARE(f.log.lines.last(), prefix + "Hotkey Clear the response area reset to "
                                              "config.json default (ctrl+alt+cmd+x)");
    }

    void resetEndsRecording()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        f.rebinding->resetHotkey(HotkeyAction::Clear);
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.keys.isInstalled());
        QCOMPARE(f.platform.registered.size(), 7);
    }

    void resetRollsBackToo()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        f.platform.claim(ctrl | alt | cmd | Qt::Key_X);
        f.rebinding->resetHotkey(HotkeyAction::Clear);
        QCOMPARE(f.rebinding->hotkeyRollbackMessage(),
                 (HotkeyRebinding::Rollback{
                     HotkeyAction::Clear,
                     "Couldn't register the default combo — kept your previous one."}));
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"clear", "ctrl+alt+m"}}));
        QVERIFY(f.isRegistered("ctrl+alt+m"));
        QCOMPARE(f.log.lines.last(),
                 prefix + "Hotkey Clear the response area reset to default FAILED to register — "
                          "rolled back, not persisted");
        f.platform.release(ctrl | alt | cmd | Qt::Key_X);
        f.rebinding->resetHotkey(HotkeyAction::Clear);
        QVERIFY(!f.rebinding->hotkeyRollbackMessage());
    }

    void anActionIsUnset()
    {
        Fixture f;
        QSignalSpy bindings(f.rebinding.get(), &HotkeyRebinding::hotkeysConfigChanged);
        f.rebinding->unsetHotkey(HotkeyAction::Clear);
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Clear], "");
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"clear", ""}}));
        QVERIFY(!f.isRegistered("ctrl+alt+cmd+x"));
        QCOMPARE(f.platform.registered.size(), 6);
        QCOMPARE(bindings.size(), 1);
        QVERIFY(!f.rebinding->hotkeyRollbackMessage());
        QCOMPARE(f.log.lines.last(), prefix + "Hotkey Clear the response area unset, persisted + "
                                              "unregistered live");
        // It stays so after a restart.
        f.make();
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Clear], "");
        // The freed combo can be recorded for another action.
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        f.keys.press(ctrl | alt | cmd, "x");
        QCOMPARE(f.rebinding->hotkeysConfig()[HotkeyAction::Toggle], "ctrl+alt+cmd+x");
        QVERIFY(f.isRegistered("ctrl+alt+cmd+x"));
    }

    void unsettingTwiceDoesNothing()
    {
        Fixture f;
        f.rebinding->unsetHotkey(HotkeyAction::Clear);
        f.log.clear();
        QSignalSpy changed(f.rebinding.get(), &HotkeyRebinding::changed);
        f.rebinding->unsetHotkey(HotkeyAction::Clear);
        QVERIFY(f.log.lines.isEmpty());
        QCOMPARE(changed.size(), 0);
    }

    void unsetActionsAreNoDuplicatesAndCanBeRecorded()
    {
        HotkeyCombos file;
        file[HotkeyAction::Clear].clear();
        file[HotkeyAction::Toggle].clear();
        Fixture f(file);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        QVERIFY(!f.rebinding->hotkeyCaptureError());
        QVERIFY(f.isRegistered("ctrl+alt+m"));
        // Reset leaves it unset, as in the file.
        f.rebinding->resetHotkey(HotkeyAction::Clear);
        QCOMPARE(f.rebinding->hotkeysConfig(), file);
        QCOMPARE(f.stored(), (QMap<QString, QString>()));
        QVERIFY(!f.isRegistered("ctrl+alt+m"));
        QCOMPARE(f.log.lines.last(), prefix + "Hotkey Clear the response area reset to "
                                              "config.json default (not set)");
    }

    void aTakenComboLeavesAnUnsetActionUnset()
    {
        HotkeyCombos file;
        file[HotkeyAction::Clear].clear();
        Fixture f(file);
        f.platform.claim(ctrl | alt | Qt::Key_M);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        QVERIFY(f.rebinding->hotkeyRollbackMessage());
        QCOMPARE(f.rebinding->hotkeysConfig(), file);
        QVERIFY(f.stored().isEmpty());
    }

    void unsettingEndsRecording()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        f.rebinding->unsetHotkey(HotkeyAction::Clear);
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.keys.isInstalled());
        QCOMPARE(f.platform.registered.size(), 6);
    }

    void resetAll()
    {
        HotkeyCombos file;
        file[HotkeyAction::Clear] = QStringLiteral("ctrl+shift+z");
        Fixture f(file);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrl | alt, "m");
        f.platform.claim(ctrl | alt | Qt::Key_K);
        f.rebinding->beginCapturingHotkey(HotkeyAction::Toggle);
        f.keys.press(ctrl | alt, "k");
        QVERIFY(f.rebinding->hotkeyRollbackMessage());
        f.rebinding->beginCapturingHotkey(HotkeyAction::NewThread);
        f.log.clear();
        f.rebinding->resetAllHotkeys();
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QVERIFY(!f.rebinding->hotkeyRollbackMessage());
        QCOMPARE(f.rebinding->hotkeysConfig(), file);
        QVERIFY(!f.defaults.stringDictionary("hotkeyBindings"));
        QVERIFY(f.isRegistered("ctrl+shift+z"));
        QCOMPARE(f.platform.registered.size(), 7);
        const QStringList lines = f.log.lines.filter(QRegularExpression("Resumed|Stopped|reset"));
        QCOMPARE(lines, (QStringList{resumed, "[HotkeyManager] Stopped, all hotkeys unregistered",
                                     prefix + "All hotkeys reset to config.json defaults, "
                                              "persisted + re-registered live"}));
    }

    void destructionLetsGoOfTheKeyboard()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.rebinding.reset();
        QVERIFY(!f.keys.isInstalled());
    }
};

QUELLORA_TEST(QCoreApplication, TestHotkeyRebinding)
#include "test_hotkey_rebinding.moc"
