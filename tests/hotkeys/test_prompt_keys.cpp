#include "base/UserDefaults.h"
#include "fakes/FakeDesktopShortcuts.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/HotkeyRebinding.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;
using namespace std::chrono_literals;

namespace {

constexpr Qt::KeyboardModifiers ctrlAlt = Qt::ControlModifier | Qt::AltModifier;
const PromptPreset explain{"explain", "Explain", "Explain it."};
const PromptPreset sumUp{"sum-up", "Sum up", "Sum it up."};
const HotkeyId explainId = HotkeyId::prompt("explain");
const HotkeyId sumUpId = HotkeyId::prompt("sum-up");

struct Fixture
{
    explicit Fixture(const QMap<QString, QString> &stored = {}, DesktopShortcuts *desktop = nullptr)
        : manager(
              platform, Vocabulary::linuxDesktop(), [this] { return now; },
              [this](const HotkeyId &id, const QString &line) {
                  if (line.isEmpty())
                      problems.remove(id);
                  else
                      problems.insert(id, line);
              },
              desktop)
    {
        QObject::connect(&manager, &HotkeyManager::promptPressed, &manager,
                         [this](const QString &id) { prompts << id; });
        QObject::connect(&manager, &HotkeyManager::pressed, &manager,
                         [this](HotkeyAction action) { actions << action; });
        defaults.setStringDictionary("hotkeyBindings", stored);
        manager.setPrompts({explain, sumUp});
        manager.start(HotkeyBindings::loadEffective({}, defaults));
        rebinding = std::make_unique<HotkeyRebinding>(manager, defaults, keys, HotkeyCombos());
    }
    bool press(QKeyCombination combo)
    {
        const bool isRegistered = platform.pressCombo(combo);
        QCoreApplication::processEvents();
        return isRegistered;
    }
    QMap<QString, QString> stored() const { return *defaults.stringDictionary("hotkeyBindings"); }

    LogCapture log;
    FakeGlobalHotkeys platform;
    std::chrono::steady_clock::time_point now{1000s};
    QMap<HotkeyId, QString> problems;
    QStringList prompts;
    QList<HotkeyAction> actions;
    JsonUserDefaults defaults;
    FakeKeyMonitor keys;
    HotkeyManager manager;
    std::unique_ptr<HotkeyRebinding> rebinding;
};

} // namespace

/// The hot keys of the user's prompts.
class PromptKeysTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void idsAreValues()
    {
        QCOMPARE(explainId.jsonKey(), "prompt.explain");
        QCOMPARE(explainId.command(), "prompt-explain");
        QVERIFY(explainId.isPrompt());
        QVERIFY(explainId != sumUpId);
        QVERIFY(explainId != HotkeyId(HotkeyAction::Capture));
        QVERIFY(explainId < sumUpId);
        for (const HotkeyId &id : {explainId, HotkeyId(HotkeyAction::NewThread)})
            QCOMPARE(HotkeyId::fromJsonKey(id.jsonKey()), id);
        for (const char *key : {"", "prompt.", "Prompt.explain", "unknown", "capture "})
            QVERIFY2(!HotkeyId::fromJsonKey(key), key);
    }

    void promptsComeAfterTheTable()
    {
        Fixture f;
        const QList<HotkeyId> ids = f.manager.ids();
        QCOMPARE(ids.size(), qsizetype(hotkeyActions.size()) + 2);
        QCOMPARE(ids.mid(ids.size() - 2), (QList<HotkeyId>{explainId, sumUpId}));
        QCOMPARE(f.rebinding->title(explainId), "Capture and send: Explain");
    }

    void withoutAComboTheyAreNotRegistered()
    {
        Fixture f;
        QCOMPARE(f.platform.registered.size(), 7);
        QVERIFY(f.problems.isEmpty());
        QVERIFY(!f.manager.activeHotkeys().contains("prompt.explain"));
    }

    void pressesNameThePrompt()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+e"}, {"prompt.sum-up", "ctrl+alt+u"}});
        QVERIFY(f.press(ctrlAlt | Qt::Key_E));
        QVERIFY(f.press(ctrlAlt | Qt::Key_U));
        QCOMPARE(f.prompts, (QStringList{"explain", "sum-up"}));
        QVERIFY(f.actions.isEmpty());
        QVERIFY(f.log.lines.contains("[HotkeyManager] Fired: Prompt explain"));
        // Each is debounced by itself.
        f.now += 200ms;
        f.press(ctrlAlt | Qt::Key_E);
        QCOMPARE(f.prompts.size(), 2);
        f.now += 101ms;
        f.press(ctrlAlt | Qt::Key_E);
        QCOMPARE(f.prompts.size(), 3);
        QCOMPARE(f.manager.activeHotkeys().value("prompt.explain"), "ctrl+alt+e");
    }

    void aComboIsRecordedAndUnset()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(explainId);
        f.keys.press(ctrlAlt, "e");
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"prompt.explain", "ctrl+alt+e"}}));
        QVERIFY(f.press(ctrlAlt | Qt::Key_E));
        QCOMPARE(f.prompts, QStringList{"explain"});
        // Log lines do not have the user's own words.
        QVERIFY(f.log.lines.filter("Explain").isEmpty());
        f.rebinding->resetHotkey(explainId);
        QVERIFY(f.stored().isEmpty());
        QVERIFY(!f.press(ctrlAlt | Qt::Key_E));
    }

    void aCombosOwnerIsNamed()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+e"}});
        f.rebinding->beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(ctrlAlt, "e");
        QCOMPARE(f.rebinding->hotkeyCaptureError(),
                 "Already used by Capture and send: Explain. Try a different combo.");
    }

    void aProblemIsNamedByThePrompt()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+super+nonsense"}});
        QCOMPARE(f.problems.keys(), QList<HotkeyId>{explainId});
        f.manager.setPrompts({sumUp});
        QVERIFY(f.problems.isEmpty());
    }

    void renamingKeepsTheKey()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+e"}, {"prompt.sum-up", "ctrl+alt+e"}});
        QVERIFY(f.problems.value(sumUpId).contains("already used by Capture and send: Explain."));
        QSignalSpy changed(&f.manager, &HotkeyManager::promptsChanged);
        f.manager.setPrompts({{"explain", "Say why", "Why?"}, sumUp});
        QCOMPARE(changed.size(), 1);
        QVERIFY(f.problems.value(sumUpId).contains("already used by Capture and send: Say why."));
        QVERIFY(f.press(ctrlAlt | Qt::Key_E));
        QCOMPARE(f.rebinding->title(explainId), "Capture and send: Say why");
        f.manager.setPrompts({{"explain", "Say why", "Why?"}, sumUp});
        QCOMPARE(changed.size(), 1);
    }

    void aDeletedPromptReleasesItsKey()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+e"}, {"prompt.sum-up", "ctrl+alt+e"}});
        QSignalSpy bindings(f.rebinding.get(), &HotkeyRebinding::hotkeysConfigChanged);
        f.manager.setPrompts({sumUp});
        QCOMPARE(f.stored(), (QMap<QString, QString>{{"prompt.sum-up", "ctrl+alt+e"}}));
        QCOMPARE(bindings.size(), 1);
        // Whoever lacked the combo has it.
        QVERIFY(f.problems.isEmpty());
        QVERIFY(f.press(ctrlAlt | Qt::Key_E));
        QCOMPARE(f.prompts, QStringList{"sum-up"});
        f.manager.setPrompts({});
        QVERIFY(f.stored().isEmpty());
        QVERIFY(!f.press(ctrlAlt | Qt::Key_E));
        // A prompt with the same id starts without a combo.
        f.manager.setPrompts({explain});
        QVERIFY(!f.press(ctrlAlt | Qt::Key_E));
    }

    void aDeletedPromptEndsItsRecording()
    {
        Fixture f;
        f.rebinding->beginCapturingHotkey(explainId);
        f.manager.setPrompts({sumUp});
        QVERIFY(!f.rebinding->capturingHotkeyAction());
        QCOMPARE(f.platform.registered.size(), 7);
    }

    void aNewPromptIsRegisteredAtOnce()
    {
        Fixture f({{"prompt.new", "ctrl+alt+w"}});
        QCOMPARE(f.platform.registered.size(), 7);
        f.manager.setPrompts({explain, sumUp, {"new", "New", "Text"}});
        QVERIFY(f.press(ctrlAlt | Qt::Key_W));
        QCOMPARE(f.prompts, QStringList{"new"});
    }

    void resetAllUnsetsThem()
    {
        Fixture f({{"prompt.explain", "ctrl+alt+e"}});
        f.rebinding->resetAllHotkeys();
        QVERIFY(!f.press(ctrlAlt | Qt::Key_E));
        QCOMPARE(f.rebinding->hotkeysConfig()[explainId], "");
    }

    void theDesktopIsOfferedThem()
    {
        FakeDesktopShortcuts desktop;
        Fixture f({{"prompt.explain", "ctrl+alt+e"}}, &desktop);
        f.manager.offerToDesktop();
        const DesktopShortcuts::Action &last = desktop.offered.last();
        QCOMPARE(last.id, "prompt-sum-up");
        QCOMPARE(last.description, "Capture and send: Sum up");
        QVERIFY(!last.preferred);
        QCOMPARE(desktop.offered.at(desktop.offered.size() - 2).preferred,
                 QKeyCombination(ctrlAlt, Qt::Key_E));
        desktop.answer(Capability::applied(), {{"prompt-sum-up", "Meta+U"}});
        QCOMPARE(f.manager.desktopKey(sumUpId), "Meta+U");
        desktop.press("prompt-sum-up");
        QCoreApplication::processEvents();
        QCOMPARE(f.prompts, QStringList{"sum-up"});
    }

    void theDesktopIsToldOfChangedPrompts()
    {
        FakeDesktopShortcuts desktop;
        Fixture f({{"prompt.explain", "ctrl+alt+e"}}, &desktop);
        // Not before the first offer.
        f.manager.setPrompts({explain});
        QCOMPARE(desktop.offers, 0);
        f.manager.offerToDesktop();
        desktop.answer(Capability::applied());
        f.manager.setPrompts({explain, sumUp});
        QCOMPARE(desktop.offers, 2);
        QCOMPARE(desktop.offered.last().id, "prompt-sum-up");
        desktop.press("prompt-sum-up");
        QCoreApplication::processEvents();
        QCOMPARE(f.prompts, QStringList{"sum-up"});
        // The desktop shows names, neither texts nor the order.
        f.manager.setPrompts({sumUp, {explain.id, explain.name, "Other text"}});
        QCOMPARE(desktop.offers, 2);
        f.manager.setPrompts({{sumUp.id, "Shorten", sumUp.text}, explain});
        QCOMPARE(desktop.offers, 3);
        QCOMPARE(desktop.offered.at(desktop.offered.size() - 2).description,
                 "Capture and send: Shorten");
        f.manager.setPrompts({explain});
        QCOMPARE(desktop.offers, 4);
        QCOMPARE(desktop.offered.last().id, "prompt-explain");
    }

    void hostileStoredKeysAreNoActions()
    {
        Fixture f({{"prompt.", "ctrl+alt+e"}, {"prompt.../x", "ctrl+alt+w"}});
        QCOMPARE(f.platform.registered.size(), 7);
        QVERIFY(!f.manager.updateHotkey("prompt.gone", "ctrl+alt+e"));
        QVERIFY(f.log.lines.last().contains("unknown jsonKey"));
    }
};

QUELLORA_TEST(QCoreApplication, PromptKeysTest)
#include "test_prompt_keys.moc"
