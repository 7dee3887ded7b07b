#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

namespace {

constexpr Qt::KeyboardModifiers threeModifiers =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

} // namespace

/// The settings sheet in the real panel.
class TestSettingsSheet : public OverlayDriver
{
    Q_OBJECT
private:
    void open()
    {
        f().connectSettings();
        showActive();
        f().settings.setOpen(true);
        QTRY_VERIFY(isLoaded());
    }
    bool isLoaded() { return f().find("settingsClose") != nullptr; }
    void key(int key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&f().panel, Qt::Key(key), modifiers);
    }
    QString focusedObjectName()
    {
        QQuickItem *item = f().panel.activeFocusItem();
        return item ? item->objectName() : QString();
    }
    /// All visible texts below @p item, in no particular order.
    QStringList texts(QQuickItem *item)
    {
        QStringList found;
        if (!item->isVisible())
            return found;
        if (item->inherits("QQuickText"))
            found << item->property("text").toString();
        const auto children = item->childItems();
        for (QQuickItem *child : children)
            found << texts(child);
        return found;
    }
    QAccessibleInterface *accessible(const char *name)
    {
        return QAccessible::queryAccessibleInterface(f().find(name));
    }
    /// Scrolls a control into view and clicks it.
    void clickInContent(const char *name)
    {
        f().panel.grabWindow(); // updates the layout
        QMetaObject::invokeMethod(f().find("settingsSheet"), "reveal",
                                  Q_ARG(QVariant, QVariant::fromValue(f().find(name))));
        click(name);
    }
    /// Scrolls a control into view and moves the pointer over it.
    void hoverInContent(const char *name)
    {
        f().panel.grabWindow(); // updates the layout
        QMetaObject::invokeMethod(f().find("settingsSheet"), "reveal",
                                  Q_ARG(QVariant, QVariant::fromValue(f().find(name))));
        QTest::mouseMove(&f().panel, centre(name));
    }
    double scrollOffset() { return f().find("settingsScroll")->property("contentY").toDouble(); }
    /// Share of an item's height that is inside the viewport; 1 if it is fully visible.
    double visibleShare(const char *name)
    {
        const QQuickItem *item = f().find(name);
        const QQuickItem *scroll = f().find("settingsScroll");
        const double top = item->mapToItem(scroll, QPointF()).y();
        const double visible =
            std::min(top + item->height(), scroll->height()) - std::max(top, 0.0);
        return visible / item->height();
    }

private Q_SLOTS:
    void startIsChosen()
    {
        open();
        QCOMPARE(accessible("startsWhereLeft")->role(), QAccessible::CheckBox);
        QVERIFY(accessible("startsWhereLeft")->state().checked);
        clickInContent("startsWhereLeft");
        QCOMPARE(f().defaults.boolValue("startsWhereLeft"), false);
        QVERIFY(!accessible("startsWhereLeft")->state().checked);
    }

    void screenChoiceNeedsSeveralScreens()
    {
        open();
        const auto words = [this] { return texts(f().find("settingsContent")); };
        QVERIFY(!words().contains("All screens"));
        f().settings.setScreenChoiceOffered(true);
        for (const char *text : {"Screenshots", "Screen with the pointer", "All screens",
                                 "What a capture shows while several screens are connected."})
            QVERIFY2(words().contains(QString::fromLatin1(text)), text);
        QCOMPARE(accessible("captureScreens-0")->role(), QAccessible::RadioButton);
        QCOMPARE(accessible("captureScreens-1")->text(QAccessible::Name), "All screens");
        QVERIFY(accessible("captureScreens-0")->state().checked);

        clickInContent("captureScreens-1");
        QCOMPARE(f().defaults.boolValue("captureAllScreens"), true);
        QVERIFY(!accessible("captureScreens-0")->state().checked);
        QVERIFY(accessible("captureScreens-1")->state().checked);
        f().find("captureScreens-1")->forceActiveFocus();
        key(Qt::Key_Up);
        QCOMPARE(f().defaults.boolValue("captureAllScreens"), false);
        QVERIFY(accessible("captureScreens-0")->state().checked);
        // A screen is disconnected while the sheet is open.
        f().settings.setScreenChoiceOffered(false);
        QVERIFY(!words().contains("All screens"));
        QVERIFY(f().settings.isOpen());
    }

    void noticeSwitchNeedsSupport()
    {
        open();
        const auto words = [this] { return texts(f().find("settingsContent")); };
        QVERIFY(!words().contains("Notify when an answer is ready"));
        f().settings.setNoticeOffered(true);
        for (const char *text : {"Answers", "Notify when an answer is ready",
                                 "Only while the panel is hidden. The notification contains "
                                 "neither your question nor the answer."})
            QVERIFY2(words().contains(QString::fromLatin1(text)), text);
        QCOMPARE(accessible("notifyWhenAnswerReady")->role(), QAccessible::CheckBox);
        QVERIFY(!accessible("notifyWhenAnswerReady")->state().checked);
        clickInContent("notifyWhenAnswerReady");
        QCOMPARE(f().defaults.boolValue("notifyWhenAnswerReady"), true);
        QVERIFY(accessible("notifyWhenAnswerReady")->state().checked);
        f().settings.setNoticeOffered(false);
        QVERIFY(!words().contains("Notify when an answer is ready"));
    }

    void showsAllTexts()
    {
        open();
        f().settings.setCaptureNote(QStringLiteral("Seen by others."));
        const QStringList shown = texts(f().find("settingsContent"));
        const QStringList expected{
            "Seen by others.",
            "Model",
            "Choose which Claude model handles your requests.",
            "Fast",
            "Quick answers, fewest credits",
            "Appearance",
            "Match your background: dark theme over dark apps, light theme over documents or "
            "bright UIs. System follows your desktop's setting.",
            "Light",
            "Dark",
            "System",
            "Response text color",
            "Overrides the theme's default text color — useful when the response background is "
            "very transparent. Doesn't change headings, bold, or code color.",
            "Sending",
            "Start a new thread with each Send",
            "Off: threads accumulate — every Send/Capture & Send continues the current one. On: "
            "each Send/Capture & Send begins a fresh thread automatically.",
            "Don't clear prompt after sending",
            "Keep your prompt in the box after Send or Capture & Send, so you can capture "
            "something new and ask again. Notes still clear.",
            "Hotkeys",
            "Click any row to change its shortcut. New bindings save instantly — no restart "
            "needed.",
            "Capture screen and send to Claude",
            "Ctrl+Alt+Super+C",
            "Reset all hotkeys",
            "Need help? See the Help docs ↗",
            "About",
            "Quellora 1.0.0",
            "OFL-1.1",
        };
        for (const QString &text : expected)
            QVERIFY2(shown.contains(text), qPrintable(text));
        f().settings.setCaptureNote(QString());
        QVERIFY(!texts(f().find("settingsContent")).contains(QString("Seen by others.")));
    }

    void controlsHaveNamesRolesAndStates()
    {
        open();
        const auto check = [this](const char *item, const QString &name, QAccessible::Role role) {
            QAccessibleInterface *found = accessible(item);
            QVERIFY2(found, item);
            QCOMPARE(found->text(QAccessible::Name), name);
            QCOMPARE(found->role(), role);
        };
        check("settingsClose", "Close", QAccessible::Button);
        check("model-claude-balanced", "Balanced", QAccessible::RadioButton);
        check("appearance-dark", "Dark", QAccessible::RadioButton);
        check("swatch-nearBlack", "Text color: Near black", QAccessible::RadioButton);
        check("hexField", "Custom text color", QAccessible::EditableText);
        check("startNewThreadPerSend", "Start a new thread with each Send", QAccessible::CheckBox);
        check("hotkeyButton-1", "Clear the response area, Ctrl+Alt+Super+X", QAccessible::Button);
        check("resetAllHotkeys", "Reset all hotkeys", QAccessible::Button);
        check("helpLink", "Need help? See the Help docs ↗", QAccessible::Link);
        QVERIFY(accessible("model-claude-balanced")->state().checked);
        QVERIFY(!accessible("model-claude-fast")->state().checked);
        QCOMPARE(accessible("model-claude-fast")->text(QAccessible::Description),
                 QString("Quick answers, fewest credits"));
        QVERIFY(accessible("appearance-dark")->state().checked);
        QVERIFY(accessible("swatch-theme")->state().checked);
        QVERIFY(!accessible("startNewThreadPerSend")->state().checked);
        f().stored.setStartNewThreadPerSendEnabled(true);
        QVERIFY(accessible("startNewThreadPerSend")->state().checked);
    }

    void accessibleActionsWork()
    {
        open();
        const auto press = [this](const char *item) {
            auto *actions = accessible(item)->actionInterface();
            actions->doAction(QAccessibleActionInterface::pressAction());
        };
        press("model-claude-deep");
        QCOMPARE(f().stored.selectedModelId(), QString("claude-deep"));
        press("appearance-light");
        QCOMPARE(f().stored.appearance(), Settings::Appearance::Light);
        press("swatch-cyan");
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#22d3ee"));
        accessible("dontClearPromptAfterSend")
            ->actionInterface()
            ->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(f().stored.dontClearPromptAfterSendEnabled());
        press("hotkeyButton-2");
        QCOMPARE(f().rebinding.capturingHotkeyAction(), HotkeyAction::Toggle);
        QSignalSpy help(&f().settings, &SettingsModel::helpRequested);
        press("helpLink");
        QCOMPARE(help.size(), 1);
        press("settingsClose");
        QVERIFY(!f().settings.isOpen());
    }

    void tabOrder()
    {
        open();
        f().rebinding.beginCapturingHotkey(HotkeyAction::NewThread);
        f().keyMonitor.press(threeModifiers, "n");
        const QStringList order{"settingsClose",
                                "model-claude-balanced",
                                "appearance-dark",
                                "swatch-theme",
                                "hexField",
                                "startNewThreadPerSend",
                                "dontClearPromptAfterSend",
                                "lookBeforeSending",
                                "startsWhereLeft",
                                "hotkeyButton-0",
                                "hotkeyButton-1",
                                "hotkeyButton-2",
                                "hotkeyButton-3",
                                "hotkeyButton-4",
                                "hotkeyButton-5",
                                "hotkeyButton-6",
                                "trailing-6",
                                "hotkeyButton-7",
                                "hotkeyButton-8",
                                "hotkeyButton-9",
                                "hotkeyButton-10",
                                "hotkeyButton-11",
                                "resetAllHotkeys",
                                "helpLink",
                                "license-0",
                                "license-1",
                                "license-2",
                                "license-3",
                                "license-4",
                                "license-5",
                                "license-6",
                                "settingsClose"};
        QCOMPARE(focusedObjectName(), order.first());
        for (const QString &next : order.mid(1)) {
            key(Qt::Key_Tab);
            QCOMPARE(focusedObjectName(), next);
            if (next != order.last())
                QVERIFY2(visibleShare(qPrintable(next)) > 0.999, qPrintable(next));
        }
        key(Qt::Key_Tab, Qt::ShiftModifier);
        QCOMPARE(focusedObjectName(), QString("license-6"));
    }

    void licensesOpenAndClose()
    {
        open();
        QQuickItem *content = f().find("settingsContent");
        QVERIFY(!texts(content).join(QChar(32)).contains("Permission is hereby granted"));
        f().find("license-6")->forceActiveFocus(Qt::TabFocusReason);
        QAccessibleInterface *row = accessible("license-6");
        QCOMPARE(row->text(QAccessible::Name), QString("License of marked"));
        QCOMPARE(row->text(QAccessible::Description), QString("MIT"));
        QQuickItem *const item = f().find("license-6")->parentItem();
        const double closed = item->height();
        key(Qt::Key_Return);
        QCOMPARE(row->text(QAccessible::Description), QString("MIT, shown below"));
        QVERIFY(f().find("licenseText-6")
                    ->property("text")
                    .toString()
                    .contains("Permission is hereby granted"));
        QVERIFY(item->height() > closed + 200);
        key(Qt::Key_Space);
        QCOMPARE(row->text(QAccessible::Description), QString("MIT"));
        QCOMPARE(item->height(), closed);
    }

    void arrowKeysSelectModel()
    {
        open();
        key(Qt::Key_Tab);
        key(Qt::Key_Down);
        QCOMPARE(f().stored.selectedModelId(), QString("claude-deep"));
        QCOMPARE(focusedObjectName(), QString("model-claude-deep"));
        key(Qt::Key_Down);
        QCOMPARE(f().stored.selectedModelId(), QString("claude-fast"));
        key(Qt::Key_Up);
        QCOMPARE(f().stored.selectedModelId(), QString("claude-deep"));
        key(Qt::Key_Home);
        QCOMPARE(f().stored.selectedModelId(), QString("claude-fast"));
        key(Qt::Key_End);
        QCOMPARE(f().stored.selectedModelId(), QString("claude-deep"));
        QCOMPARE(focusedObjectName(), QString("model-claude-deep"));
    }

    void arrowKeysSelectAppearanceAndColor()
    {
        open();
        key(Qt::Key_Tab);
        key(Qt::Key_Tab);
        key(Qt::Key_Left);
        QCOMPARE(f().stored.appearance(), Settings::Appearance::Light);
        QVERIFY(f().settings.isLightTheme());
        QCOMPARE(focusedObjectName(), QString("appearance-light"));
        key(Qt::Key_Left);
        QCOMPARE(f().stored.appearance(), Settings::Appearance::System);
        key(Qt::Key_Tab);
        key(Qt::Key_Right);
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#ffffff"));
        key(Qt::Key_End);
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#ffb020"));
        key(Qt::Key_Home);
        QVERIFY(!f().stored.responseTextColorHex());
    }

    void customColorKeepsSwatchesInTabOrder()
    {
        open();
        f().stored.setResponseTextColorHex("#8899aa");
        key(Qt::Key_Tab);
        key(Qt::Key_Tab);
        key(Qt::Key_Tab);
        QCOMPARE(focusedObjectName(), QString("swatch-theme"));
        key(Qt::Key_Return);
        QVERIFY(!f().stored.responseTextColorHex());
    }

    void clicksSelect()
    {
        open();
        click("model-claude-fast");
        QCOMPARE(f().stored.selectedModelId(), QString("claude-fast"));
        click("appearance-light");
        QCOMPARE(f().stored.appearance(), Settings::Appearance::Light);
        click("swatch-green");
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#3ddc84"));
        QCOMPARE(f().find("hexField")->property("text").toString(), QString("#3ddc84"));
        // A click anywhere in the row toggles the switch.
        const QQuickItem *row = f().find("startNewThreadPerSend");
        const QPoint left = row->mapToScene(QPointF(20, row->height() - 12)).toPoint();
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, left);
        QVERIFY(f().stored.startNewThreadPerSendEnabled());
        QVERIFY(row->property("checked").toBool());
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, left);
        QVERIFY(!f().stored.startNewThreadPerSendEnabled());
        QVERIFY(!row->property("checked").toBool());
    }

    void switchShowsStoredValue()
    {
        f().settings.setOpen(false);
        show();
        f().settings.setOpen(true);
        QTRY_VERIFY(isLoaded());
        // If the store ignores the change, the switch must not show it.
        f().defaults.isReadOnly = true;
        click("startNewThreadPerSend");
        QVERIFY(!f().find("startNewThreadPerSend")->property("checked").toBool());
    }

    void hexFieldCommitsOnReturnAndFocusLoss()
    {
        open();
        f().find("hexField")->forceActiveFocus(Qt::TabFocusReason);
        type("#fff");
        QVERIFY(!f().find("hexError")->isVisible());
        key(Qt::Key_Return);
        QVERIFY(f().find("hexError")->isVisible());
        QVERIFY(f().find("hexField")->property("failed").toBool());
        QVERIFY(!f().stored.responseTextColorHex());
        QVERIFY(
            texts(f().find("hexError")).contains(QString("Enter a valid hex color, e.g. #8899aa")));
        key(Qt::Key_A, Qt::ControlModifier);
        type(" 8899AA ");
        key(Qt::Key_Return);
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#8899aa"));
        QVERIFY(!f().find("hexError")->isVisible());
        QCOMPARE(f().find("hexField")->property("text").toString(), QString("#8899aa"));
        key(Qt::Key_A, Qt::ControlModifier);
        type("123456");
        key(Qt::Key_Tab);
        QCOMPARE(f().stored.responseTextColorHex(), std::optional<QString>("#123456"));
    }

    void escapeDiscardsHexInput()
    {
        open();
        f().stored.setResponseTextColorHex("#123456");
        QSignalSpy chosen(&f().stored, &Settings::responseTextColorHexChanged);
        clickInContent("hexField");
        key(Qt::Key_A, Qt::ControlModifier);
        type("#00ff00");
        QCOMPARE(f().settings.hexInput(), QStringLiteral("#00ff00"));
        key(Qt::Key_Escape);
        QVERIFY(!f().settings.isOpen());
        QTRY_VERIFY(!isLoaded());
        QCOMPARE(chosen.size(), 0);
        f().settings.setOpen(true);
        QTRY_VERIFY(isLoaded());
        QCOMPARE(text("hexField"), QStringLiteral("#123456"));
    }

    void defaultModelCanBeSelected()
    {
        open();
        QVERIFY(!f().defaults.stringValue("selectedModelId"));
        clickInContent("model-claude-balanced");
        QCOMPARE(f().defaults.stringValue("selectedModelId"), QString("claude-balanced"));
    }

    void escapeClosesFromAnywhere()
    {
        open();
        // A screen reader may move the focus to a covered item.
        f().find("promptInput")->forceActiveFocus();
        key(Qt::Key_Escape);
        QVERIFY(!f().settings.isOpen());
    }

    void anyPressInsideRequestsKeyboard()
    {
        open();
        QTRY_COMPARE(f().find("settingsSheet")->property("progress").toDouble(), 1.0);
        f().platform.calls.clear();
        press({200, 50}); // the header, beside its text
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {200, 50});
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 1);
        click("settingsClose");
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 2);
    }

    void escapeClosesAndRestoresFocus()
    {
        open();
        f().find("hexField")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Escape);
        QVERIFY(!f().settings.isOpen());
        QCOMPARE(focusName(), QString("Menu"));
        QVERIFY(f().panel.activeFocusItem()->property("visualFocus").toBool());
        // The sheet is unloaded.
        QTRY_VERIFY(!isLoaded());
    }

    void noFocusRingWhenOpenedWithMouse()
    {
        f().connectSettings();
        f().menu.setSettingsAvailable(true);
        showActive();
        click("menuButton");
        click("menuSettings");
        QTRY_VERIFY(isLoaded());
        QCOMPARE(focusedObjectName(), QString("settingsClose"));
        QVERIFY(!f().panel.activeFocusItem()->property("visualFocus").toBool());
        click("settingsClose");
        QTRY_VERIFY(!isLoaded());
        QCOMPARE(focusName(), QString("Menu"));
    }

    void focusRingWhenOpenedWithKeyboard()
    {
        f().connectSettings();
        f().menu.setSettingsAvailable(true);
        showActive();
        f().find("menuButton")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        QTRY_VERIFY(f().overlay.isMenuOpen());
        f().find("menuSettings")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        QTRY_VERIFY(isLoaded());
        QCOMPARE(focusedObjectName(), QString("settingsClose"));
        QVERIFY(f().panel.activeFocusItem()->property("visualFocus").toBool());
    }

    void closingMenuRestoresFocusToSheet()
    {
        open();
        click("menuButton");
        QVERIFY(f().overlay.isMenuOpen());
        key(Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
        QVERIFY(f().settings.isOpen());
        QCOMPARE(focusedObjectName(), QString("settingsClose"));
    }

    void f6StaysInSheet()
    {
        open();
        key(Qt::Key_F6);
        QCOMPARE(focusedObjectName(), QString("settingsClose"));
        key(Qt::Key_F6, Qt::ShiftModifier);
        QCOMPARE(focusedObjectName(), QString("settingsClose"));
    }

    void hotkeyRowShowsRecordingAndDuplicate()
    {
        open();
        clickInContent("hotkeyButton-1");
        QCOMPARE(f().rebinding.capturingHotkeyAction(), HotkeyAction::Clear);
        QCOMPARE(text("chip-1"), QString("Press a shortcut…"));
        QVERIFY(f().find("chip-1")->property("recording").toBool());
        QCOMPARE(accessible("trailing-1")->text(QAccessible::Name), QString("Cancel recording"));
        f().keyMonitor.press(threeModifiers, "c");
        QVERIFY(f().find("notice-1")->isVisible());
        QCOMPARE(text("notice-1"),
                 QString("Already used by Capture screen and send to Claude. Try a different "
                         "combo."));
        QCOMPARE(f().find("hotkey-1")->height(), 68);
        clickInContent("trailing-1");
        QVERIFY(!f().rebinding.capturingHotkeyAction());
        QCOMPARE(text("chip-1"), QString("Ctrl+Alt+Super+X"));
        QVERIFY(!f().find("trailing-1")->isVisible());
        QVERIFY(!f().find("notice-1")->isVisible());
        QCOMPARE(f().find("hotkey-1")->height(), 40);
    }

    void hotkeyIsUnsetWithMouse()
    {
        open();
        QVERIFY(!f().find("unset-1")->isVisible());
        hoverInContent("hotkeyButton-1");
        QTRY_VERIFY(f().find("unset-1")->isVisible());
        QVERIFY(!f().find("unset-0")->isVisible());
        QCOMPARE(accessible("unset-1")->text(QAccessible::Name),
                 QString("Unset Clear the response area"));
        clickInContent("unset-1");
        QCOMPARE(text("chip-1"), QString("Not set"));
        QVERIFY(f().find("chip-1")->property("vacant").toBool());
        QVERIFY(!f().find("unset-1")->isVisible());
        QVERIFY(!f().rebinding.capturingHotkeyAction());
        QCOMPARE(accessible("hotkeyButton-1")->text(QAccessible::Name),
                 QString("Clear the response area, not set"));
        // Recording gives it a combo again.
        clickInContent("hotkeyButton-1");
        f().keyMonitor.press(threeModifiers, "m");
        QCOMPARE(text("chip-1"), QString("Ctrl+Alt+Super+M"));
        clickInContent("trailing-1");
        QCOMPARE(text("chip-1"), QString("Ctrl+Alt+Super+X"));
    }

    void hotkeyIsUnsetWithKeys_data()
    {
        QTest::addColumn<int>("pressed");
        QTest::newRow("delete") << int(Qt::Key_Delete);
        QTest::newRow("backspace") << int(Qt::Key_Backspace);
    }
    void hotkeyIsUnsetWithKeys()
    {
        QFETCH(int, pressed);
        open();
        f().find("hotkeyButton-2")->forceActiveFocus(Qt::TabFocusReason);
        QVERIFY(f().find("unset-2")->isVisible());
        QCOMPARE(accessible("hotkeyButton-2")->text(QAccessible::Description),
                 QString("Delete unsets it"));
        key(Qt::Key(pressed));
        QCOMPARE(text("chip-2"), QString("Not set"));
        QCOMPARE(focusedObjectName(), QString("hotkeyButton-2"));
        QCOMPARE(accessible("hotkeyButton-2")->text(QAccessible::Description), QString());
        key(Qt::Key(pressed));
        QCOMPARE(text("chip-2"), QString("Not set"));
        key(Qt::Key_Tab);
        QCOMPARE(focusedObjectName(), QString("trailing-2"));
        key(Qt::Key_Return);
        QCOMPARE(text("chip-2"), QString("Ctrl+Alt+Super+T"));
    }

    void conflictIsResolvedWithMouse()
    {
        open();
        f().find("hotkeyButton-6")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        f().keyMonitor.press(Qt::MetaModifier | Qt::ShiftModifier, "3");
        QCOMPARE(text("chip-6"), QString("Super+Shift+3"));
        QVERIFY(f().find("chip-6")->property("conflict").toBool());
        QVERIFY(!f().find("chip-6")->property("recording").toBool());
        QCOMPARE(text("notice-6"), QString("This may conflict with Screenshot (full screen)"));
        // The row grows and is scrolled into view.
        QTRY_VERIFY(visibleShare("hotkey-6") > 0.999);
        const auto inRow = [this](const char *name) {
            return OverlayFixture::findIn(f().find("hotkey-6"), QLatin1String(name));
        };
        QVERIFY(!inRow("conflictConfirm")->property("activeFocusOnTab").toBool());
        const auto clickItem = [this](QQuickItem *item) {
            f().panel.grabWindow();
            QTest::mouseClick(&f().panel, Qt::LeftButton, {},
                              item->mapToScene(QPointF(item->width() / 2, 14)).toPoint());
        };
        clickItem(inRow("conflictCancel"));
        QVERIFY(f().rebinding.capturingHotkeyAction());
        QCOMPARE(text("chip-6"), QString("Press a shortcut…"));
        f().keyMonitor.press(Qt::MetaModifier | Qt::ShiftModifier, "3");
        clickItem(inRow("conflictConfirm"));
        QCOMPARE(text("chip-6"), QString("Super+Shift+3"));
        QVERIFY(!f().find("chip-6")->property("conflict").toBool());
        QCOMPARE(accessible("trailing-6")->text(QAccessible::Name),
                 QString("Reset Start a new thread"));
        clickInContent("trailing-6");
        QCOMPARE(text("chip-6"), QString("Super+N"));
        QVERIFY(!f().find("trailing-6")->isVisible());
    }

    void rollbackIsShownInRow()
    {
        open();
        f().hotkeys.claim(threeModifiers | Qt::Key_K);
        clickInContent("hotkeyButton-0");
        f().keyMonitor.press(threeModifiers, "k");
        QCOMPARE(text("notice-0"),
                 QString("Couldn't register that combo — kept your previous one."));
        QCOMPARE(text("chip-0"), QString("Ctrl+Alt+Super+C"));
        QCOMPARE(f().find("hotkey-0")->height(), 68);
        QVERIFY(!f().find("trailing-0")->isVisible());
    }

    void resetAllAndHelp()
    {
        open();
        f().rebinding.beginCapturingHotkey(HotkeyAction::Clear);
        f().keyMonitor.press(threeModifiers, "m");
        QVERIFY(f().find("trailing-1")->isVisible());
        f().find("resetAllHotkeys")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        QVERIFY(!f().find("trailing-1")->isVisible());
        QCOMPARE(text("chip-1"), QString("Ctrl+Alt+Super+X"));
        QSignalSpy help(&f().settings, &SettingsModel::helpRequested);
        clickInContent("helpLink");
        QCOMPARE(help.size(), 1);
    }

    void wheelAndKeysScroll()
    {
        open();
        QCOMPARE(scrollOffset(), 0);
        wheel("settingsScroll", {}, {0, -240});
        QCOMPARE(scrollOffset(), 120);
        wheel("settingsScroll", {}, {0, 2400});
        QCOMPARE(scrollOffset(), 0);
        key(Qt::Key_PageDown);
        QVERIFY(scrollOffset() > 200);
        key(Qt::Key_PageUp);
        QCOMPARE(scrollOffset(), 0);
        key(Qt::Key_End);
        QVERIFY(visibleShare("helpLink") > 0.999);
        key(Qt::Key_Home);
        QCOMPARE(scrollOffset(), 0);
        wheel("settingsScroll", {}, {0, -24000});
        const double end = scrollOffset();
        // Enlarging the panel must not leave a gap below the content.
        f().panel.resize(624, 860);
        QTRY_VERIFY(scrollOffset() < end);
    }

    void themeChangesImmediately()
    {
        open();
        const auto pixel = [this] {
            const QImage picture = f().panel.grabWindow();
            return picture.pixelColor(picture.width() / 2, 60 * picture.height() / 744);
        };
        QTRY_COMPARE(pixel(), QColor(0x1c, 0x1e, 0x24));
        click("appearance-light");
        QTRY_COMPARE(pixel(), QColor(0xf7, 0xf5, 0xf0));
        // The frame stays dark.
        const QImage picture = f().panel.grabWindow();
        QVERIFY(picture.pixelColor(picture.width() / 2, 17).lightness() < 60);
        click("appearance-dark");
        QTRY_COMPARE(pixel(), QColor(0x1c, 0x1e, 0x24));
    }

    void layoutSizes()
    {
        open();
        QTRY_COMPARE(f().find("settingsScroll")->mapToScene(QPointF()).y(), 34 + 48);
        QCOMPARE(f().find("settingsContent")->width(), 624 - 2 * 20);
        QCOMPARE(f().find("model-claude-fast")->height(), 44);
        QCOMPARE(f().find("startNewThreadPerSend")->height(), 78);
        QCOMPARE(f().find("hotkey-0")->height(), 40);
        QCOMPARE(f().find("chip-0")->height(), 24);
        QCOMPARE(f().find("hexField")->width(), 112);
        QCOMPARE(f().find("hexField")->height(), 32);
        QCOMPARE(f().find("swatch-white")->x() - f().find("swatch-theme")->x(), 36);
        f().panel.resize(1440, 900);
        QTRY_COMPARE(f().find("settingsContent")->width(), 640);
        QTRY_COMPARE(f().find("settingsContent")->mapToScene(QPointF()).x(), (1440 - 640) / 2.0);
        f().panel.resize(320, 280);
        QTRY_COMPARE(f().find("settingsScroll")->mapToScene(QPointF()).y(), 34 + 40);
        QCOMPARE(f().find("settingsScroll")->width(), 320);
        // No control extends beyond the panel.
        for (const char *name : {"model-claude-fast", "appearance-system", "swatch-amber",
                                 "hexField", "dontClearPromptAfterSend", "chip-5", "helpLink"}) {
            const QQuickItem *item = f().find(name);
            const double right = item->mapToScene(QPointF(item->width(), 0)).x();
            QVERIFY2(right <= 320 - 12 + 0.5, qPrintable(QString("%1 %2").arg(name).arg(right)));
        }
    }

    void noFramesWhenIdle()
    {
        open();
        QVERIFY(isStill());
    }
};

QUELLORA_TEST(QGuiApplication, TestSettingsSheet)
#include "test_settings_sheet.moc"
