#include "base/Settings.h"
#include "base/Text.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakePlatform.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/HotkeyRebinding.h"
#include "sheets/settings/SettingsModel.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

constexpr Qt::KeyboardModifiers modifiers =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

struct Fixture
{
    explicit Fixture(Vocabulary platformVocabulary = Vocabulary::macOS(),
                     DesktopShortcuts *desktopShortcuts = nullptr)
        : vocabulary(std::move(platformVocabulary))
        , manager(
              platform, vocabulary, &std::chrono::steady_clock::now,
              [](const HotkeyId &, const QString &) {}, desktopShortcuts)
    {
        manager.start({});
        models.setOffer({{"m1", "Claude One", "first"}, {"m2", "Claude Two", "second"}}, "m1");
    }
    QVariant row(HotkeyAction action, HotkeyRows::Role role)
    {
        HotkeyRows *rows = settings.hotkeyRows();
        return rows->data(rows->index(int(action)), role);
    }

    const Vocabulary vocabulary;
    FakeGlobalHotkeys platform;
    JsonUserDefaults defaults;
    Settings stored{defaults};
    FakeKeyMonitor keys;
    HotkeyManager manager;
    HotkeyRebinding rebinding{manager, defaults, keys, {}};
    ModelListModel models{stored};
    SettingsModel settings{stored,
                           models,
                           rebinding,
                           vocabulary,
                           {"Add these.",
                            [](const QString &combo, const QString &command) {
                                return combo + " = quellora " + command;
                            },
                            "the place"}};
};

} // namespace

class TestSettingsModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void hexInputValidation_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("color");
        QTest::newRow("without hash") << "8899AA"
                                      << "#8899aa";
        QTest::newRow("surrounding white space") << "  #8899aa \t"
                                                 << "#8899aa";
        QTest::newRow("with hash") << "#8899aa"
                                   << "#8899aa";
        QTest::newRow("leading blank") << " #00FF00"
                                       << "#00ff00";
        QTest::newRow("three digits") << "#fff" << QString();
        QTest::newRow("seven characters") << "#8899aag" << QString();
        QTest::newRow("invalid digit") << "8899ag" << QString();
        QTest::newRow("two hashes") << "##8899aa" << QString();
        QTest::newRow("sign") << "+12345" << QString();
        QTest::newRow("hex prefix") << "0x1234" << QString();
        QTest::newRow("inner blank") << "#88 9aa" << QString();
        QTest::newRow("inner line break") << "#8899aa\nx" << QString();
        QTest::newRow("empty") << "" << QString();
    }
    void hexInputValidation()
    {
        QFETCH(QString, input);
        QFETCH(QString, color);
        QCOMPARE(TextColors::normalizedHex(input).value_or(QString()), color);
        Fixture f;
        f.settings.setHexInput(input);
        f.settings.commitHexInput();
        if (color.isEmpty()) {
            QCOMPARE(f.settings.hexError(), "Enter a valid hex color, e.g. #8899aa");
            QVERIFY(!f.stored.responseTextColorHex());
            QCOMPARE(f.settings.hexInput(), input);
        } else {
            QCOMPARE(f.settings.hexError(), QString());
            QCOMPARE(f.stored.responseTextColorHex(), color);
            QCOMPARE(f.settings.hexInput(), color);
        }
    }

    void commandLinesFollowTheHotkeys()
    {
        Fixture f;
        QVERIFY(f.settings.hotkeyRows()->commandHint().endsWith("Add these."));
        QCOMPARE(f.row(HotkeyAction::NewThread, HotkeyRows::CommandLineRole),
                 "cmd+n = quellora new-thread");
        f.settings.hotkeyRows()->copyCommandLine(int(HotkeyAction::OpacityUp));
        QCOMPARE(QGuiApplication::clipboard()->text(), "ctrl+alt+cmd+] = quellora opacity-up");
        f.settings.hotkeyRows()->copyCommandLine(99);
        QCOMPARE(QGuiApplication::clipboard()->text(), "ctrl+alt+cmd+] = quellora opacity-up");

        QVERIFY(SettingsModel(f.stored, f.models, f.rebinding, f.vocabulary)
                    .hotkeyRows()
                    ->commandHint()
                    .isEmpty());
    }

    void rowsShowTheDesktopsKeys()
    {
        FakeDesktopShortcuts shortcuts;
        Fixture f(Vocabulary::linuxDesktop(), &shortcuts);
        HotkeyRows &rows = *f.settings.hotkeyRows();
        QSignalSpy deliveryChanged(&rows, &HotkeyRows::deliveryChanged);
        QSignalSpy dataChanged(&rows, &HotkeyRows::dataChanged);
        f.rebinding.beginCapturingHotkey(HotkeyAction::Clear);
        shortcuts.answer(Capability::applied(), {{"capture", "Meta+C"}});
        QVERIFY(!deliveryChanged.isEmpty());
        QVERIFY(!dataChanged.isEmpty());
        QVERIFY(rows.isListed());
        QVERIFY(!rows.isRecordable());
        QVERIFY(!f.rebinding.capturingHotkeyAction());
        QCOMPARE(rows.hint(), "Your desktop assigns these keys. To change them, open the place.");
        QCOMPARE(rows.commandHint(),
                 "Each action is also a command, for keys of your own. Add these.");
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::ComboRole), "Meta+C");
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::KeyStateRole),
                 "Meta+C, assigned by the desktop");
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::ComboRole), "");
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::KeyStateRole), "no key assigned");
        rows.beginCapture(int(HotkeyAction::Clear));
        QVERIFY(!f.rebinding.capturingHotkeyAction());

        dataChanged.clear();
        shortcuts.answer(Capability::applied(), {{"toggle", "Meta+T"}});
        QVERIFY(!dataChanged.isEmpty());
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::ComboRole), "");
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::ComboRole), "Meta+T");
    }

    void aChangedComboCannotBeResetWhileTheDesktopAssignsKeys()
    {
        FakeDesktopShortcuts shortcuts;
        Fixture f(Vocabulary::linuxDesktop(), &shortcuts);
        f.rebinding.beginCapturingHotkey(HotkeyAction::Clear);
        f.keys.press(modifiers, "k");
        QVERIFY(f.row(HotkeyAction::Clear, HotkeyRows::ChangedRole).toBool());
        shortcuts.answer(Capability::applied());
        QVERIFY(!f.row(HotkeyAction::Clear, HotkeyRows::ChangedRole).toBool());
    }

    void rowsTellWhereKeysWork()
    {
        FakeDesktopShortcuts shortcuts;
        Fixture f(Vocabulary::linuxDesktop(), &shortcuts);
        HotkeyRows &rows = *f.settings.hotkeyRows();
        shortcuts.answer(Capability::unsupported("No keys here."));
        QVERIFY(rows.isListed());
        QVERIFY(rows.isRecordable());
        QVERIFY2(rows.hint().startsWith(
                     "No keys here. In this session these keys work only over some windows. Click"),
                 qPrintable(rows.hint()));
        QCOMPARE(rows.commandHint(),
                 "Keys bound in your desktop work over all windows. Add these.");
        QCOMPARE(f.row(HotkeyAction::NewThread, HotkeyRows::KeyStateRole),
                 "Super+N, works over some windows");

        // A session without hot keys for programs.
        f.manager.suspendAll();
        for (const HotkeyActionInfo &row : hotkeyActions) {
            if (const auto combo = HotkeyCombo::parse(row.defaultCombo))
                f.platform.claim(*combo, {});
        }
        f.manager.resume({});
        QVERIFY(!rows.isListed());
        QVERIFY(!rows.isRecordable());
        QCOMPARE(rows.hint(), "No keys here. In this session only the desktop can bind keys: see "
                              "Desktop shortcuts below.");
        QCOMPARE(f.row(HotkeyAction::NewThread, HotkeyRows::KeyStateRole), "no key works");
        QCOMPARE(f.row(HotkeyAction::NewThread, HotkeyRows::CommandLineRole),
                 "cmd+n = quellora new-thread");
    }

    void keysOfTheProgramNeedNoDesktop()
    {
        Fixture f;
        HotkeyRows &rows = *f.settings.hotkeyRows();
        QVERIFY(rows.isRecordable());
        QVERIFY(rows.hint().startsWith("Click any row"));
        QCOMPARE(f.row(HotkeyAction::NewThread, HotkeyRows::KeyStateRole), "Cmd+N");
    }

    void anActionCanBeUnset()
    {
        Fixture f;
        HotkeyRows &rows = *f.settings.hotkeyRows();
        const auto clear = HotkeyAction::Clear;
        rows.unset(int(clear));
        QCOMPARE(f.row(clear, HotkeyRows::ComboRole), "");
        QCOMPARE(f.row(clear, HotkeyRows::KeyStateRole), "not set");
        QVERIFY(f.row(clear, HotkeyRows::ChangedRole).toBool());
        QVERIFY(f.row(clear, HotkeyRows::ErrorRole).toString().isEmpty());
        QCOMPARE(f.row(clear, HotkeyRows::CommandLineRole), " = quellora clear");
        rows.reset(int(clear));
        QCOMPARE(f.row(clear, HotkeyRows::ComboRole), "Ctrl+Option+Cmd+X");
        rows.unset(99);
        rows.unset(-1);
        QCOMPARE(f.rebinding.hotkeysConfig(), HotkeyCombos());
    }

    void anUnsetActionWorksOverNoWindow()
    {
        FakeDesktopShortcuts shortcuts;
        Fixture f(Vocabulary::linuxDesktop(), &shortcuts);
        shortcuts.answer(Capability::unsupported("No keys here."));
        f.settings.hotkeyRows()->unset(int(HotkeyAction::Clear));
        QCOMPARE(f.row(HotkeyAction::Clear, HotkeyRows::KeyStateRole), "not set");
        shortcuts.answer(Capability::applied(), {{"toggle", "Meta+T"}});
        // The keys are the desktop's.
        f.settings.hotkeyRows()->unset(int(HotkeyAction::Toggle));
        QCOMPARE(f.rebinding.hotkeysConfig()[HotkeyAction::Toggle], "ctrl+alt+cmd+t");
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::ComboRole), "Meta+T");
    }

    void validColorClearsError()
    {
        Fixture f;
        f.settings.setHexInput("#fff");
        f.settings.commitHexInput();
        QVERIFY(!f.settings.hexError().isEmpty());
        f.settings.setHexInput("ffffff");
        f.settings.commitHexInput();
        QVERIFY(f.settings.hexError().isEmpty());
    }

    void leavingEmptyFieldReverts()
    {
        Fixture f;
        f.stored.setResponseTextColorHex("#22d3ee");
        QSignalSpy chosen(&f.stored, &Settings::responseTextColorHexChanged);
        f.settings.setHexInput(" ");
        f.settings.leaveHexInput();
        QCOMPARE(f.settings.hexError(), QString());
        QCOMPARE(f.settings.hexInput(), "#22d3ee");
        f.settings.leaveHexInput();
        QCOMPARE(chosen.size(), 0);
        f.settings.setHexInput("xyz");
        f.settings.leaveHexInput();
        QVERIFY(!f.settings.hexError().isEmpty());
        f.settings.setHexInput("123456");
        f.settings.leaveHexInput();
        QCOMPARE(f.stored.responseTextColorHex(), "#123456");
        QCOMPARE(chosen.size(), 1);
    }

    void openingRestoresHexInput()
    {
        Fixture f;
        f.stored.setResponseTextColorHex("#22d3ee");
        f.settings.setHexInput("zz");
        f.settings.commitHexInput();
        QSignalSpy opened(&f.settings, &SettingsModel::isOpenChanged);
        f.settings.setOpen(true);
        QCOMPARE(opened.size(), 1);
        QCOMPARE(f.settings.hexInput(), "#22d3ee");
        QCOMPARE(f.settings.hexError(), QString());
    }

    void swatches()
    {
        Fixture f;
        const QList<QStringList> expected{{"theme", "Theme", "", "#e8e8ea"},
                                          {"white", "White", "#ffffff", "#ffffff"},
                                          {"nearBlack", "Near black", "#15171c", "#15171c"},
                                          {"green", "Green", "#3ddc84", "#3ddc84"},
                                          {"cyan", "Cyan", "#22d3ee", "#22d3ee"},
                                          {"blue", "Blue", "#2f80ed", "#2f80ed"},
                                          {"violet", "Violet", "#c77dff", "#c77dff"},
                                          {"magenta", "Magenta", "#ff4fd8", "#ff4fd8"},
                                          {"amber", "Amber", "#ffb020", "#ffb020"}};
        TextColors *colors = f.settings.textColors();
        QCOMPARE(colors->rowCount(), expected.size());
        for (int row = 0; row < expected.size(); ++row) {
            const QModelIndex at = colors->index(row);
            QCOMPARE((QStringList{colors->data(at, TextColors::IdRole).toString(),
                                  colors->data(at, TextColors::NameRole).toString(),
                                  colors->data(at, TextColors::HexRole).toString(),
                                  colors->data(at, TextColors::ColorRole).value<QColor>().name()}),
                     expected.at(row));
        }
        QSignalSpy recolored(colors, &QAbstractItemModel::dataChanged);
        f.settings.setLightTheme(true);
        QCOMPARE(recolored.size(), 1);
        QCOMPARE(colors->data(colors->index(0), TextColors::ColorRole).value<QColor>(),
                 QColor(0x1c, 0x1e, 0x24));
        QCOMPARE(colors->data(colors->index(5), TextColors::ColorRole).value<QColor>(),
                 QColor(0x1c, 0x6a, 0xd0));
        QCOMPARE(colors->hexAt(5), "#2f80ed");
    }

    void selectedSwatch_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<int>("row");
        QTest::newRow("no override") << "" << 0;
        QTest::newRow("upper case") << "#FFFFFF" << 1;
        QTest::newRow("mixed case") << "#3DdC84" << 3;
        QTest::newRow("last") << "#ffb020" << 8;
        QTest::newRow("custom colour") << "#8899aa" << -1;
        QTest::newRow("short form of white") << "#fff" << -1;
        QTest::newRow("invalid") << "red;}" << 0;
    }
    void selectedSwatch()
    {
        QFETCH(QString, hex);
        QFETCH(int, row);
        Fixture f;
        f.stored.setResponseTextColorHex(hex);
        QCOMPARE(f.settings.textColors()->chosenRow(), row);
        QCOMPARE(f.settings.hexInput(), isHexColor(hex) ? hex : QString());
    }

    void choosingSwatchStoresColor()
    {
        Fixture f;
        f.settings.chooseTextColor(2);
        QCOMPARE(f.stored.responseTextColorHex(), "#15171c");
        f.settings.chooseTextColor(0);
        QVERIFY(!f.stored.responseTextColorHex());
        QVERIFY(!f.defaults.stringValue("responseTextColorHex"));
        QSignalSpy changed(&f.stored, &Settings::responseTextColorHexChanged);
        f.settings.chooseTextColor(9);
        f.settings.chooseTextColor(-1);
        QCOMPARE(changed.size(), 0);
    }

    void choosingSwatchDiscardsTypedHex()
    {
        Fixture f;
        f.settings.setHexInput("zz");
        f.settings.commitHexInput();
        // The colour is unchanged, but the field must revert.
        f.settings.chooseTextColor(0);
        QCOMPARE(f.settings.hexInput(), QString());
        QCOMPARE(f.settings.hexError(), QString());
    }

    void closeIsRequestedOnlyWhileOpen()
    {
        Fixture f;
        QSignalSpy closing(&f.settings, &SettingsModel::closeRequested);
        f.settings.close();
        QCOMPARE(closing.size(), 0);
        f.settings.setOpen(true);
        f.settings.close();
        QCOMPARE(closing.size(), 1);
        QVERIFY(f.settings.isOpen());
    }

    void hotkeyRowOrder()
    {
        Fixture f;
        HotkeyRows *rows = f.settings.hotkeyRows();
        QStringList shown;
        for (int row = 0; row < rows->rowCount(); ++row)
            shown << rows->data(rows->index(row), HotkeyRows::TitleRole).toString() + ": " +
                         rows->data(rows->index(row), HotkeyRows::ComboRole).toString();
        QCOMPARE(shown,
                 (QStringList{"Capture screen and send to Claude: Ctrl+Option+Cmd+C",
                              "Clear the response area: Ctrl+Option+Cmd+X",
                              "Toggle overlay visibility: Ctrl+Option+Cmd+T",
                              "Increase opacity: Ctrl+Option+Cmd+]",
                              "Decrease opacity: Ctrl+Option+Cmd+[",
                              "Capture (no send): Ctrl+Option+Cmd+Shift+C",
                              "Start a new thread: Cmd+N", "Capture the window in front and send: ",
                              "Capture a region and send: ", "Capture the last region and send: ",
                              "Let clicks reach the answer: ", "Ask the last question again: "}));
    }

    void keyAndSettingNamesArePlatformSpecific()
    {
        Fixture f(Vocabulary::linuxDesktop());
        QCOMPARE(f.row(HotkeyAction::CaptureNoSend, HotkeyRows::ComboRole),
                 "Ctrl+Alt+Super+Shift+C");
        f.settings.hotkeyRows()->beginCapture(int(HotkeyAction::Clear));
        f.keys.press(Qt::MetaModifier, "q");
        QCOMPARE(f.row(HotkeyAction::Clear, HotkeyRows::ConflictComboRole), "Super+Q");
        QCOMPARE(f.settings.appearanceHint(),
                 "Match your background: dark theme over dark apps, light theme over documents or "
                 "bright UIs. System follows your desktop's setting.");
        QCOMPARE(Fixture().settings.appearanceHint(),
                 "Match your background: dark theme over dark apps, light theme over documents or "
                 "bright UIs. System follows your macOS setting.");
    }

    void modelHintOmitsNameForOtherMakers()
    {
        Fixture f;
        QSignalSpy changed(&f.settings, &SettingsModel::modelHintChanged);
        QCOMPARE(f.settings.modelHint(), "Choose which Claude model handles your requests.");
        f.models.setOffer({{"r", "Offline reader", ""}}, "r");
        QCOMPARE(f.settings.modelHint(), "Choose which model handles your requests.");
        f.models.setOffer({{"r", "Offline reader", ""}}, "r");
        QCOMPARE(changed.size(), 1);
        f.models.setOffer({{"m1", "Claude One", "first"}}, "m1");
        QCOMPARE(f.settings.modelHint(), "Choose which Claude model handles your requests.");
        QCOMPARE(changed.size(), 2);
    }

    void hotkeyRowStates()
    {
        Fixture f;
        HotkeyRows *rows = f.settings.hotkeyRows();
        QSignalSpy changed(rows, &QAbstractItemModel::dataChanged);
        QSignalSpy rebuilt(rows, &QAbstractItemModel::modelReset);
        const auto clear = HotkeyAction::Clear;
        rows->beginCapture(int(clear));
        QVERIFY(!changed.isEmpty());
        QCOMPARE(f.row(clear, HotkeyRows::CapturingRole), true);
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::CapturingRole), false);
        QCOMPARE(f.row(clear, HotkeyRows::ErrorRole), QString());

        f.keys.press(modifiers, "c");
        QCOMPARE(f.row(clear, HotkeyRows::ErrorRole),
                 "Already used by Capture screen and send to Claude. Try a different combo.");
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::ErrorRole), QString());

        f.keys.press(Qt::MetaModifier, "q");
        QCOMPARE(f.row(clear, HotkeyRows::ConflictRole), "This may conflict with Quit application");
        QCOMPARE(f.row(clear, HotkeyRows::ConflictComboRole), "Cmd+Q");
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::ConflictRole), QString());
        rows->cancelConflict();
        QCOMPARE(f.row(clear, HotkeyRows::ConflictRole), QString());
        f.keys.press(Qt::MetaModifier, "q");
        rows->confirmConflict();
        QCOMPARE(f.row(clear, HotkeyRows::ComboRole), "Cmd+Q");
        QCOMPARE(f.row(clear, HotkeyRows::CapturingRole), false);
        QCOMPARE(f.row(clear, HotkeyRows::ChangedRole), true);
        QCOMPARE(f.row(HotkeyAction::Capture, HotkeyRows::ChangedRole), false);

        f.platform.claim(modifiers | Qt::Key_K);
        rows->beginCapture(int(clear));
        f.keys.press(modifiers, "k");
        QCOMPARE(f.row(clear, HotkeyRows::ErrorRole),
                 "Couldn't register that combo — kept your previous one.");
        QCOMPARE(f.row(HotkeyAction::Toggle, HotkeyRows::ErrorRole), QString());
        // Recording in another row clears the message.
        rows->beginCapture(int(HotkeyAction::Toggle));
        QCOMPARE(f.row(clear, HotkeyRows::ErrorRole), QString());
        rows->cancelCapture();
        QVERIFY(!f.rebinding.capturingHotkeyAction());

        rows->reset(int(clear));
        QCOMPARE(f.row(clear, HotkeyRows::ComboRole), "Ctrl+Option+Cmd+X");
        QCOMPARE(f.row(clear, HotkeyRows::ChangedRole), false);
        rows->beginCapture(7);
        rows->beginCapture(-1);
        rows->reset(7);
        QVERIFY(!f.rebinding.capturingHotkeyAction());
        // The model is never reset, so that views keep their rows.
        QCOMPARE(rebuilt.size(), 0);
    }

    void resetAllRestoresDefaults()
    {
        Fixture f;
        f.settings.hotkeyRows()->beginCapture(1);
        f.keys.press(modifiers, "m");
        f.settings.hotkeyRows()->resetAll();
        QCOMPARE(f.row(HotkeyAction::Clear, HotkeyRows::ComboRole), "Ctrl+Option+Cmd+X");
        QVERIFY(!f.defaults.stringDictionary("hotkeyBindings"));
    }
};

QUELLORA_TEST(QGuiApplication, TestSettingsModel)
#include "test_settings_model.moc"
