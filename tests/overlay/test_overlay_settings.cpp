#include "ControllerFixture.h"
#include "support/TestProgram.h"
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

constexpr Qt::KeyboardModifiers threeModifiers =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
const QString resumedLine = QStringLiteral("[HotkeyManager] Resumed all hotkeys after capture");

struct Fixture : ControllerFixture
{
    using ControllerFixture::ControllerFixture;

    SettingsModel &model() { return overlay->settings().model(); }
    HotkeyRebinding &rebinding() { return overlay->settings().rebinding(); }
    void start()
    {
        hotkeys.start(rebinding().hotkeysConfig());
        overlay->show();
        overlay->settings().open();
    }
    QString lastScript() const { return surface->scripts.value(surface->scripts.size() - 1); }
};

} // namespace

/// Effects of the settings on the overlay.
class TestOverlaySettings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void noScreenChoiceWithOneScreen()
    {
        Fixture f;
        f.platform.tool = {"/tool", {"-x"}, {"-x", "--all"}};
        f.make();
        QVERIFY(!f.model().isScreenChoiceOffered());
    }

    void refreshKeepsRecordingAndSheets()
    {
        Fixture f;
        f.start();
        f.rebinding().beginCapturingHotkey(HotkeyAction::Clear);
        AppConfigResponse config;
        config.availableModels = {{"m2", "Two", "d"}};
        config.model = "m2";
        config.tokenCap = 1000;
        config.tokensUsed = 990;
        config.adminMessage = AdminMessagePayload{"up", "BLOCKING", "Update", "Do it.", {}, {}, 5};
        QSignalSpy opened(&f.model(), &SettingsModel::isOpenChanged);
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.rebinding().capturingHotkeyAction(), HotkeyAction::Clear);
        QVERIFY(f.model().isOpen());
        QCOMPARE(opened.count(), 0);
        QVERIFY(f.overlay->messages().isBlocked());
        QCOMPARE(f.overlay->panelsModel().models()->selectedName(), "Two");

        f.model().close();
        f.library.add("thread", QDateTime::currentDateTime());
        f.overlay->history()->historyButtonClicked();
        QTRY_COMPARE(f.overlay->history()->model().rowCount(), 1);
        f.overlay->history()->model().setRenaming(true);
        config.tokensUsed = 995;
        config.adminMessage.reset();
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(f.overlay->history()->model().isOpen());
        QVERIFY(f.overlay->history()->model().isRenaming());
        QVERIFY(!f.overlay->messages().isBlocked());
    }

    void menuOpensSettings()
    {
        Fixture f;
        QVERIFY(f.overlay->menuModel().settingsAvailable());
        f.overlay->show();
        QTRY_VERIFY(!f.overlay->overlayModel().clickThroughRect().isEmpty());
        Q_EMIT f.overlay->menuModel().settingsRequested();
        QVERIFY(f.model().isOpen());
        QVERIFY(f.platform.panel.clickThroughRect().isEmpty());
        f.model().close();
        QVERIFY(!f.model().isOpen());
        QVERIFY(!f.platform.panel.clickThroughRect().isEmpty());
    }

    void preferencesOfWrongTypeAreIgnored()
    {
        Fixture f;
        f.platform.systemAppearance.dark = true;
        f.defaults.setBool("com.quellora.app.appearance", true);
        f.defaults.setBool("responseTextColorHex", true);
        f.defaults.setBool("selectedModelId", true);
        f.defaults.setString("startNewThreadPerSendEnabled", "true");
        f.defaults.setString("dontClearPromptAfterSendEnabled", "true");
        f.defaults.setString("hotkeyBindings", "ctrl+k");
        f.make();
        QCOMPARE(f.settings.appearance(), Settings::Appearance::System);
        QVERIFY(!f.model().isLightTheme());
        QCOMPARE(f.model().hexInput(), QString());
        QCOMPARE(f.model().textColors()->chosenRow(), 0);
        QCOMPARE(f.rebinding().hotkeysConfig(), HotkeyCombos());
        // Changing the setting replaces the invalid entry.
        f.settings.setAppearance(Settings::Appearance::Light);
        f.settings.setStartNewThreadPerSendEnabled(true);
        QCOMPARE(f.defaults.stringValue("com.quellora.app.appearance"), "light");
        QCOMPARE(f.defaults.boolValue("startNewThreadPerSendEnabled"), true);
    }

    void onlyOneSheetIsOpen()
    {
        Fixture f;
        f.overlay->show();
        Q_EMIT f.overlay->menuModel().historyRequested();
        QVERIFY(f.overlay->history()->controller().isHistorySidebarOpen());
        Q_EMIT f.overlay->menuModel().settingsRequested();
        QVERIFY(!f.overlay->history()->controller().isHistorySidebarOpen());
        QVERIFY(f.model().isOpen());
        QVERIFY(f.platform.panel.clickThroughRect().isEmpty());
        f.model().hotkeyRows()->beginCapture(1);
        Q_EMIT f.overlay->menuModel().historyRequested();
        QVERIFY(!f.model().isOpen());
        QVERIFY(!f.rebinding().capturingHotkeyAction());
        QVERIFY(f.overlay->history()->controller().isHistorySidebarOpen());
        QVERIFY(f.platform.panel.clickThroughRect().isEmpty());
    }

    void sheetHasKeyboardWhileOpen()
    {
        Fixture f;
        f.overlay->show();
        f.platform.panel.calls.clear();
        f.overlay->settings().open();
        f.overlay->settings().open();
        QCOMPARE(f.platform.panel.count("makeKey"), 1);
        f.model().close();
        QCOMPARE(f.platform.panel.count("resignKey"), 1);
        f.overlay->settings().close();
        QCOMPARE(f.platform.panel.count("resignKey"), 1);
    }

    void panelWithTheKeyboardKeepsIt()
    {
        Fixture f;
        f.overlay->show();
        f.overlay->panel().makeKey();
        f.platform.panel.calls.clear();
        f.overlay->settings().open();
        f.model().close();
        QCOMPARE(f.platform.panel.count("makeKey"), 0);
        QCOMPARE(f.platform.panel.count("resignKey"), 0);
    }

    void appearanceIsAppliedAndStored()
    {
        Fixture f;
        f.platform.systemAppearance.dark = true;
        f.make();
        QCOMPARE(f.settings.appearance(), Settings::Appearance::System);
        QVERIFY(!f.model().isLightTheme());
        f.settings.setAppearance(Settings::Appearance::Light);
        QCOMPARE(f.defaults.stringValue("com.quellora.app.appearance"), "light");
        QVERIFY(f.model().isLightTheme());
        QCOMPARE(f.overlay->overlayModel().appliedTheme(), AppTheme::Light);
        QVERIFY(f.lastScript().contains("document.body.className = 'light'"));
        f.settings.setAppearance(Settings::Appearance::Dark);
        QVERIFY(f.lastScript().contains("document.body.className = ''"));
        // The system appearance is applied only in System mode.
        f.platform.systemAppearance.setDark(false);
        QVERIFY(!f.model().isLightTheme());
        f.settings.setAppearance(Settings::Appearance::System);
        QVERIFY(f.model().isLightTheme());
        f.platform.systemAppearance.setDark(true);
        QVERIFY(!f.model().isLightTheme());
        QCOMPARE(f.overlay->overlayModel().appliedTheme(), AppTheme::Dark);
        QVERIFY(f.lastScript().contains("document.body.className = ''"));
    }

    void textColorIsAppliedAndStored()
    {
        Fixture f;
        f.defaults.setString("responseTextColorHex", "#FFFFFF");
        f.make();
        QCOMPARE(f.model().textColors()->chosenRow(), 1);
        QCOMPARE(f.model().hexInput(), "#FFFFFF");
        f.model().chooseTextColor(3);
        QCOMPARE(f.defaults.stringValue("responseTextColorHex"), "#3ddc84");
        QCOMPARE(f.model().textColors()->chosenRow(), 3);
        QVERIFY(f.lastScript().contains("setProperty('--text', '#3ddc84')"));
        f.model().chooseTextColor(0);
        QVERIFY(!f.defaults.stringValue("responseTextColorHex"));
        QVERIFY(f.lastScript().contains("removeProperty('--text')"));
        QCOMPARE(f.model().hexInput(), QString());
        f.model().setHexInput("ABCDEF");
        f.model().commitHexInput();
        QCOMPARE(f.defaults.stringValue("responseTextColorHex"), "#abcdef");
        // Changed elsewhere.
        f.defaults.setString("responseTextColorHex", "#123456");
        QVERIFY(f.lastScript().contains("setProperty('--text', '#123456')"));
        QCOMPARE(f.model().hexInput(), "#123456");
    }

    void invalidStoredColorIsIgnored()
    {
        Fixture f;
        f.defaults.setString("responseTextColorHex", "red;}");
        f.make();
        QCOMPARE(f.model().hexInput(), QString());
        QCOMPARE(f.model().textColors()->chosenRow(), 0);
    }

    void modelListIsSharedWithPicker()
    {
        Fixture f;
        AppConfigResponse account;
        account.model = "m1";
        account.availableModels = {{"m1", "One", "d"}, {"m2", "Two", "d"}};
        f.overlay->applyConfigAtStart(account);
        QCOMPARE(f.model().models(), f.overlay->panelsModel().models());
        QCOMPARE(f.model().models()->selectedId(), "m1");
        QCOMPARE(f.model().models()->count(), 2);
        f.model().models()->choose("m2");
        QCOMPARE(f.defaults.stringValue("selectedModelId"), "m2");
        QCOMPARE(f.model().models()->selectedId(), "m2");
    }

    void helpOpensBackendPage()
    {
        Fixture f;
        f.model().openHelp();
        QCOMPARE(f.platform.systemWorkspace.urls, QList<QUrl>{QUrl("http://host/help")});
    }

    void missingCaptureExclusionIsShown()
    {
        Fixture f;
        QCOMPARE(f.model().captureNote(), QString());
        f.platform.panel.exclusionAnswer = Capability::unsupported("cannot");
        f.make();
        QCOMPARE(f.model().captureNote(),
                 "Other programs' screenshots and screen sharing show this panel.");
    }

    void recordedHotkeyIsShownEverywhere()
    {
        Fixture f;
        f.start();
        QTRY_VERIFY(f.surface->page().contains("Hit <kbd>Ctrl+Option+Cmd+C</kbd>"));
        f.surface->finishLoad();
        QSignalSpy panels(&f.overlay->panelsModel(), &BottomPanelsModel::hotkeysChanged);
        f.model().hotkeyRows()->beginCapture(0);
        f.platform.keys.press({threeModifiers, "k"});
        QCOMPARE(f.rebinding().hotkeysConfig()[HotkeyAction::Capture], "ctrl+alt+cmd+k");
        QCOMPARE(f.overlay->panelsModel().hotkeys().value("capture").toString(),
                 "Ctrl+Option+Cmd+K");
        QCOMPARE(panels.size(), 1);
        QVERIFY(f.lastScript().contains("#ph kbd"));
        QVERIFY(f.lastScript().contains("\"Ctrl+Option+Cmd+K\""));
        QCOMPARE(f.defaults.stringDictionary("hotkeyBindings"),
                 (QMap<QString, QString>{{"capture", "ctrl+alt+cmd+k"}}));
        // New pages contain it.
        f.overlay->clearContent();
        QTRY_VERIFY(f.surface->page().contains("Hit <kbd>Ctrl+Option+Cmd+K</kbd>"));
        // A page that was still loading is updated once it has loaded.
        f.model().hotkeyRows()->reset(0);
        f.surface->finishLoad();
        QVERIFY(f.lastScript().contains("\"Ctrl+Option+Cmd+C\""));
    }

    void keysFollowTheDesktop()
    {
        Fixture f;
        f.start();
        QTRY_VERIFY(f.surface->page().contains("Hit <kbd>Ctrl+Option+Cmd+C</kbd>"));
        const BottomPanelsModel &panels = f.overlay->panelsModel();
        f.surface->finishLoad();
        f.shortcuts.answer(Capability::applied(), {{"capture", "Meta+C"}});
        QVERIFY(f.lastScript().contains("\"Meta+C\""));
        QCOMPARE(panels.hotkeys().value("capture").toString(), "Meta+C");
        QCOMPARE(panels.hotkeys().value("new_thread").toString(), "");
        // Without a key, the button is named.
        f.shortcuts.answer(Capability::applied(), {{"toggle", "Meta+T"}});
        QVERIFY(f.lastScript().contains("\"Capture and send\""));
        QCOMPARE(panels.hotkeys().value("toggle").toString(), "Meta+T");
        f.shortcuts.answer(Capability::unsupported("No."));
        QCOMPARE(panels.hotkeys().value("toggle").toString(), "Ctrl+Option+Cmd+T");

        f.hotkeys.suspendAll();
        for (const HotkeyActionInfo &row : hotkeyActions) {
            if (const auto combo = HotkeyCombo::parse(row.defaultCombo))
                f.platform.hotkeys.claim(*combo, {});
        }
        f.hotkeys.resume({});
        QCOMPARE(panels.hotkeys().value("toggle").toString(), "");
        QVERIFY(f.lastScript().contains("\"Capture and send\""));
    }

    void keysHavePlatformNames()
    {
        Fixture f;
        f.platform.systemVocabulary = Vocabulary::linuxDesktop();
        f.make();
        f.start();
        QTRY_VERIFY(f.surface->page().contains("Hit <kbd>Ctrl+Alt+Super+C</kbd>"));
        const BottomPanelsModel &panels = f.overlay->panelsModel();
        QCOMPARE(panels.hotkeys().value("capture").toString(), "Ctrl+Alt+Super+C");
        QCOMPARE(panels.hotkeys().value("capture_no_send").toString(), "Ctrl+Alt+Super+Shift+C");
        QCOMPARE(panels.hotkeys().value("new_thread").toString(), "Super+N");
        QCOMPARE(f.overlay->overlayModel().stopShortcut(), "Super+.");
        HotkeyRows *rows = f.model().hotkeyRows();
        QCOMPARE(rows->data(rows->index(3), HotkeyRows::ComboRole), "Ctrl+Alt+Super+]");
        QVERIFY(f.model().appearanceHint().endsWith("System follows your desktop's setting."));
        f.library.add("thread", QDateTime::currentDateTime());
        f.overlay->history()->historyButtonClicked();
        HistoryModel &history = f.overlay->history()->model();
        QTRY_COMPARE(history.rowCount(), 1);
        history.requestDelete(0);
        QVERIFY(history.deleteText().contains("removed from this computer."));

        f.platform.systemVocabulary = Vocabulary::macOS();
        f.make();
        QCOMPARE(f.overlay->panelsModel().hotkeys().value("capture_no_send").toString(),
                 "Ctrl+Option+Cmd+Shift+C");
        QCOMPARE(f.overlay->overlayModel().stopShortcut(), "Cmd+.");
    }

    void answererNameIsUpdatedEverywhere()
    {
        Fixture f;
        f.config.hotkeys.insert("clear", hotkeyAction(HotkeyAction::Capture).defaultCombo);
        f.make();
        f.start();
        QTRY_VERIFY(
            f.surface->page().contains("</kbd> to capture screen → Claude responds here</div>"));
        QVERIFY(f.surface->page().contains(">⏳ Claude is thinking...</div>"));
        f.surface->finishLoad();
        HotkeyRows *rows = f.model().hotkeyRows();
        const auto firstRow = [rows] { return rows->data(rows->index(0), HotkeyRows::TitleRole); };
        const auto card = [&f] { return f.permissions.pendingAdminMessage()->bodyMarkdown; };
        QCOMPARE(firstRow(), "Capture screen and send to Claude");
        QVERIFY(card().contains("already used by Capture screen and send to Claude."));

        AppConfigResponse config;
        config.availableModels = {{"r1", "Offline reader", "d"}, {"r2", "<Deep>", "d"}};
        config.model = "r1";
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.model().models()->answererName(), "Offline reader");
        QCOMPARE(firstRow(), "Capture screen and send to Offline reader");
        QCOMPARE(f.model().modelHint(), "Choose which model handles your requests.");
        QVERIFY(card().contains("already used by Capture screen and send to Offline reader."));
        QVERIFY(f.lastScript().contains("→ Offline reader responds here"));
        QVERIFY(f.lastScript().contains("⏳ Offline reader is thinking..."));

        // The user's choice is applied immediately, and new pages contain it.
        f.model().models()->choose("r2");
        QCOMPARE(firstRow(), "Capture screen and send to <Deep>");
        QVERIFY(f.lastScript().contains("→ <Deep> responds here"));
        f.overlay->clearContent();
        QTRY_VERIFY(f.surface->page().contains(
            "</kbd> to capture screen → &lt;Deep&gt; responds here</div>"));
        // A page that was still loading is updated once it has loaded.
        f.model().models()->choose("r1");
        const qsizetype before = f.surface->scripts.size();
        f.surface->finishLoad();
        QVERIFY(f.surface->scripts.size() > before);
        QVERIFY(f.lastScript().contains("→ Offline reader responds here"));

        config.availableModels << ModelOption{"claude-1", "Deep", "d"};
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(firstRow(), "Capture screen and send to Claude");
        QCOMPARE(f.model().modelHint(), "Choose which Claude model handles your requests.");
        QVERIFY(f.lastScript().contains("→ Claude responds here"));
    }

    void refreshWithSameNameRunsNoScript()
    {
        Fixture f;
        f.start();
        AppConfigResponse config;
        config.availableModels = {{"r1", "Offline reader", "d"}};
        config.model = "r1";
        Q_EMIT f.notifications.configDidUpdate(config);
        const qsizetype before = f.surface->scripts.size();
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.surface->scripts.size(), before);
    }

    void resolvedConflictIsRemovedFromCard()
    {
        Fixture f;
        f.platform.hotkeys.claim(threeModifiers | Qt::Key_X);
        f.start();
        const auto shown = [&f] { return f.overlay->messages().currentAdminMessage(); };
        QVERIFY(shown());
        QCOMPARE(shown()->headerText, "Startup issue");
        const QString body = shown()->bodyMarkdown;
        QVERIFY(body.startsWith("**Ctrl+Option+Cmd+X (Clear) is unavailable**"));
        // Recording registers all hot keys again, which must not add a second problem.
        f.model().hotkeyRows()->beginCapture(int(HotkeyAction::Clear));
        f.model().hotkeyRows()->cancelCapture();
        QCOMPARE(shown()->bodyMarkdown, body);
        // A rejected change is reported in its row; the card shows only persistent problems.
        f.platform.hotkeys.claim(threeModifiers | Qt::Key_J);
        f.model().hotkeyRows()->beginCapture(int(HotkeyAction::Toggle));
        f.platform.keys.press({threeModifiers, "j"});
        QCOMPARE(shown()->bodyMarkdown, body);
        f.model().hotkeyRows()->beginCapture(int(HotkeyAction::Clear));
        f.platform.keys.press({threeModifiers, "k"});
        QVERIFY(!shown());
        QVERIFY(!f.overlay->panelsModel().hasMessage());
    }

    void keysAreMonitoredOnlyWhileRecording()
    {
        Fixture f;
        f.start();
        f.platform.panel.calls.clear();
        f.model().hotkeyRows()->beginCapture(1);
        QCOMPARE(f.platform.panel.count("makeKey"), 1);
        f.platform.keys.press({threeModifiers, QString()}); // a key without a name
        f.platform.keys.press({{}, "k"});
        QVERIFY(f.rebinding().capturingHotkeyAction());
        f.platform.keys.press({{}, QString(), true});
        QVERIFY(!f.rebinding().capturingHotkeyAction());
        QVERIFY(f.model().isOpen());
        QVERIFY(f.log.contains(resumedLine));
        QVERIFY(!f.platform.keys.isInstalled());
    }

    void recordingEndsWithSheetPanelOrSession_data()
    {
        QTest::addColumn<QString>("end");
        QTest::newRow("sheet") << "sheet";
        QTest::newRow("panel") << "panel";
        QTest::newRow("session") << "session";
    }
    void recordingEndsWithSheetPanelOrSession()
    {
        QFETCH(QString, end);
        Fixture f;
        f.start();
        f.model().hotkeyRows()->beginCapture(1);
        QVERIFY(f.platform.hotkeys.registered.isEmpty());
        f.log.clear();
        if (end == "sheet")
            f.model().close();
        else if (end == "panel")
            f.overlay->toggleVisibility();
        else
            f.overlay->closeWindow();
        QVERIFY(!f.rebinding().capturingHotkeyAction());
        QCOMPARE(f.log.lines.count(resumedLine), 1);
        QCOMPARE(f.platform.hotkeys.registered.size(), 7);
    }

    void destructionEndsRecording()
    {
        Fixture f;
        f.start();
        f.model().hotkeyRows()->beginCapture(1);
        QVERIFY(f.platform.keys.isInstalled());
        f.overlay.reset();
        QVERIFY(!f.platform.keys.isInstalled());
    }

    void savedHotkeysAreShownAtStart()
    {
        Fixture f;
        f.defaults.setStringDictionary("hotkeyBindings", {{"capture", "ctrl+k"}});
        f.make();
        QCOMPARE(f.overlay->panelsModel().hotkeys().value("capture").toString(), "Ctrl+K");
        QTRY_VERIFY(f.surface->page().contains("Hit <kbd>Ctrl+K</kbd>"));
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlaySettings)
#include "test_overlay_settings.moc"
