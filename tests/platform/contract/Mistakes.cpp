#include "platform/contract/Mistakes.h"

#include "base/UserDefaults.h"

#include <QPointer>
#include <QWindow>

#include <thread>
#include <utility>

namespace quellora {
namespace {

/// The injected mistake, queried by the code that implements it.
class Mistake
{
public:
    explicit Mistake(QString name) : m_name(std::move(name)) {}
    bool is(const char *name) const { return m_name == QLatin1String(name); }

private:
    QString m_name;
};

class FaultyPanel : public PanelWindow
{
public:
    FaultyPanel(PanelWindow &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    Capability applyPanelTraits(QWindow &window) override
    {
        return m_mistake.is("traitsAreNotApplied") ? Capability::applied()
                                                   : m_real.applyPanelTraits(window);
    }
    Capability excludeFromCapture(QWindow &window) override
    {
        m_real.excludeFromCapture(window);
        if (m_mistake.is("exclusionHasNoReason"))
            return Capability::unsupported(QString());
        if (m_mistake.is("exclusionIsBestEffort"))
            return Capability::bestEffort(QStringLiteral("Some captures show it"));
        if (m_mistake.is("exclusionShowsWindow"))
            window.show();
        return m_real.excludeFromCapture(window);
    }
    Capability setClickThrough(QWindow &window, const QRect &rect) override
    {
        if (m_mistake.is("clickThroughIsOneRowTooTall") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.adjusted(0, 0, 0, 1));
        if (m_mistake.is("clickThroughIsOneColumnTooNarrow") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.adjusted(1, 0, 0, 0));
        if (m_mistake.is("emptyRectangleIsIgnored") && rect.isEmpty())
            return Capability::applied();
        if (m_mistake.is("clickThroughUsesScreenCoordinates") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.translated(window.position()));
        return m_real.setClickThrough(window, rect);
    }
    Capability orderFront(QWindow &window) override
    {
        if (m_mistake.is("orderFrontDoesNothing"))
            return Capability::applied();
        const Capability result = m_real.orderFront(window);
        if (m_mistake.is("orderFrontTakesFocus"))
            m_real.makeKey(window);
        return result;
    }
    Capability makeKey(QWindow &window) override
    {
        if (m_mistake.is("makeKeyDoesNothing"))
            return Capability::applied();
        m_lastFocused = &window;
        if (m_mistake.is("makeKeyAlwaysReportsApplied")) {
            m_real.makeKey(window);
            return Capability::applied();
        }
        return m_real.makeKey(window);
    }
    void resignKey(QWindow &window) override
    {
        if (m_mistake.is("resignKeyDoesNothing"))
            return;
        if (m_mistake.is("resignKeyAffectsAnyPanel") && m_lastFocused)
            m_real.resignKey(*m_lastFocused);
        m_real.resignKey(window);
        if (m_mistake.is("resignKeyHidesPanel"))
            window.hide();
    }
    bool isCompositing() const override { return m_real.isCompositing(); }
    void onCompositingChanged(std::function<void()> handler) override
    {
        if (m_mistake.is("compositingIsReportedTwice"))
            m_real.onCompositingChanged([handler] {
                handler();
                handler();
            });
        else if (!m_mistake.is("compositingIsNotReported"))
            m_real.onCompositingChanged(std::move(handler));
    }

private:
    PanelWindow &m_real;
    const Mistake &m_mistake;
    QPointer<QWindow> m_lastFocused;
};

class FaultyHotkeys : public GlobalHotkeys
{
public:
    FaultyHotkeys(GlobalHotkeys &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    void installHandler(std::function<void(Registration)> onPress) override
    {
        if (m_mistake.is("pressesAreReportedTwice"))
            m_real.installHandler([onPress](Registration id) {
                onPress(id);
                onPress(id);
            });
        else if (m_mistake.is("registrationsAreOffByOne"))
            m_real.installHandler([onPress](Registration id) { onPress(id + 1); });
        else if (m_mistake.is("pressesAreReportedOffMainThread"))
            m_real.installHandler([onPress](Registration id) { std::thread(onPress, id).join(); });
        else
            m_real.installHandler(std::move(onPress));
    }
    void removeHandler() override
    {
        if (!m_mistake.is("removeHandlerDoesNothing"))
            m_real.removeHandler();
    }
    Result registerHotkey(QKeyCombination combo) override
    {
        if (m_mistake.is("oneKeyIsUnsupported") && combo.key() == Qt::Key_QuoteLeft)
            return tl::unexpected(Failure{Failure::Kind::UnsupportedKey, 1});
        if (m_mistake.is("unsupportedKeysAreAccepted") && combo.key() == Qt::Key_F5)
            return 5;
        if (m_mistake.is("shiftIsIgnored"))
            combo = (combo.keyboardModifiers() & ~Qt::ShiftModifier) | combo.key();
        const Result result = m_real.registerHotkey(combo);
        if (m_mistake.is("refusalsAreReportedAsSuccess") && !result)
            return 9;
        if (m_mistake.is("refusalsHaveWrongKind") && !result)
            return tl::unexpected(Failure{Failure::Kind::Unavailable, 0});
        if (m_mistake.is("registrationsAreNotUnique") && result)
            return 1;
        return result;
    }
    void unregisterHotkey(Registration registration) override
    {
        if (!m_mistake.is("unregisterDoesNothing"))
            m_real.unregisterHotkey(registration);
    }

private:
    GlobalHotkeys &m_real;
    const Mistake &m_mistake;
};

class FaultyMonitor : public KeyMonitor
{
public:
    FaultyMonitor(KeyMonitor &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    void install(std::function<void(const KeyDown &)> onKeyDown) override
    {
        if (m_mistake.is("monitorInterceptsNothing"))
            return;
        m_real.install([this, onKeyDown](const KeyDown &key) {
            KeyDown reported = key;
            if (m_mistake.is("escapeIsNotFlagged"))
                reported.isEscape = false;
            if (m_mistake.is("modifiersAreNotReported"))
                reported.modifiers = {};
            if (m_mistake.is("shiftChangesCharacter") && reported.modifiers & Qt::ShiftModifier)
                reported.character = reported.character.toUpper();
            onKeyDown(reported);
        });
    }
    void remove() override
    {
        if (!m_mistake.is("monitorRemoveDoesNothing"))
            m_real.remove();
    }

private:
    KeyMonitor &m_real;
    const Mistake &m_mistake;
};

class FaultyAppearance : public Appearance
{
public:
    FaultyAppearance(Appearance &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    bool isDark() const override { return m_real.isDark(); }
    void onChanged(std::function<void()> handler) override
    {
        if (m_mistake.is("darkModeHandlerRunsOnMotionChange"))
            m_real.onMotionChanged(std::move(handler));
        else
            m_real.onChanged(std::move(handler));
    }
    bool reducesMotion() const override
    {
        return !m_mistake.is("reducedMotionIsNeverReported") && m_real.reducesMotion();
    }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_real.onMotionChanged(std::move(handler));
    }

private:
    Appearance &m_real;
    const Mistake &m_mistake;
};

class FaultyWorkspace : public Workspace
{
public:
    FaultyWorkspace(Workspace &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    QFuture<OpenResult> openUrl(const QUrl &url) override
    {
        const auto opening = m_real.openUrl(
            m_mistake.is("urlsLoseTheirQuery") ? url.adjusted(QUrl::RemoveQuery) : url);
        return m_mistake.is("failuresAreNotReported") ? success() : opening;
    }
    QFuture<OpenResult> openFile(const QString &path) override
    {
        const auto opening = m_real.openFile(path);
        return m_mistake.is("missingFilesAreReportedAsOpened") ? success() : opening;
    }

private:
    static QFuture<OpenResult> success() { return QtFuture::makeReadyFuture(OpenResult()); }

    Workspace &m_real;
    const Mistake &m_mistake;
};

class FaultyShell : public ApplicationShell
{
public:
    FaultyShell(ApplicationShell &real, const Mistake &mistake) : m_real(real), m_mistake(mistake)
    {}

    Capability becomeAccessory() override
    {
        return m_mistake.is("accessoryResultHasNoReason") ? Capability::bestEffort(QString())
                                                          : m_real.becomeAccessory();
    }
    Capability makeOrdinary(QWindow &window) override
    {
        if (m_mistake.is("makeOrdinaryShowsWindow"))
            window.show();
        return m_real.makeOrdinary(window);
    }
    Capability installEditMenu() override { return m_real.installEditMenu(); }
    Capability activate(QWindow &window) override
    {
        return m_mistake.is("activateDoesNothing") ? Capability::applied()
                                                   : m_real.activate(window);
    }

private:
    ApplicationShell &m_real;
    const Mistake &m_mistake;
};

class FaultyDevice : public DeviceInfo
{
public:
    FaultyDevice(DeviceInfo &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    QString osVersion() const override
    {
        return m_real.osVersion() +
               (m_mistake.is("osVersionHasTwoLines") ? QStringLiteral("\nmore") : QString());
    }
    QString cpuArch() const override
    {
        return m_mistake.is("cpuArchIsUnknown") ? QStringLiteral("amd64") : m_real.cpuArch();
    }

private:
    DeviceInfo &m_real;
    const Mistake &m_mistake;
};

class FaultyPlatform : public Platform
{
public:
    FaultyPlatform(std::unique_ptr<Platform> real, const QString &name)
        : m_real(std::move(real)), m_mistake(name)
    {}

    PanelWindow &panelWindow() override { return m_panel; }
    GlobalHotkeys &globalHotkeys() override { return m_hotkeys; }
    KeyMonitor &keyMonitor() override { return m_monitor; }
    Permissions &permissions() override { return m_real->permissions(); }
    Appearance &appearance() override { return m_appearance; }
    Workspace &workspace() override { return m_workspace; }
    StatusArea &statusArea() override { return m_real->statusArea(); }
    SystemSymbols &symbols() override { return m_real->symbols(); }
    ApplicationShell &shell() override { return m_shell; }
    DeviceInfo &deviceInfo() override { return m_device; }
    DesktopSession &desktopSession() override { return m_real->desktopSession(); }
    Notifications &notifications() override { return m_real->notifications(); }
    CaptureTool captureTool() const override
    {
        CaptureTool tool = m_real->captureTool();
        if (m_mistake.is("captureToolMakesSound"))
            tool.arguments.removeFirst();
        return tool;
    }
    ScreenLayout screenLayout() const override
    {
        return m_mistake.is("screenLayoutIsEmpty") ? ScreenLayout() : m_real->screenLayout();
    }
    Vocabulary vocabulary() const override { return m_real->vocabulary(); }
    ShortcutGuide shortcutGuide() const override { return m_real->shortcutGuide(); }
    QString applicationSupportDirectory() const override
    {
        return m_mistake.is("supportDirectoryIsRelative") ? QStringLiteral("data")
                                                          : m_real->applicationSupportDirectory();
    }
    std::unique_ptr<UserDefaults> makeUserDefaults() const override
    {
        if (m_mistake.is("preferencesAreNotPersisted"))
            return std::make_unique<JsonUserDefaults>();
        return m_real->makeUserDefaults();
    }

private:
    std::unique_ptr<Platform> m_real;
    Mistake m_mistake;
    FaultyPanel m_panel{m_real->panelWindow(), m_mistake};
    FaultyHotkeys m_hotkeys{m_real->globalHotkeys(), m_mistake};
    FaultyMonitor m_monitor{m_real->keyMonitor(), m_mistake};
    FaultyAppearance m_appearance{m_real->appearance(), m_mistake};
    FaultyWorkspace m_workspace{m_real->workspace(), m_mistake};
    FaultyShell m_shell{m_real->shell(), m_mistake};
    FaultyDevice m_device{m_real->deviceInfo(), m_mistake};
};

} // namespace

QMap<QString, QString> injectableMistakes()
{
    const QList<std::pair<const char *, const char *>> table{
        {"traitsAreNotApplied", "PanelWindowContract::staysAboveClickedWindow"},
        {"exclusionHasNoReason", "PanelWindowContract::exclusionIsAppliedOrUnsupported"},
        {"exclusionIsBestEffort", "PanelWindowContract::exclusionIsAppliedOrUnsupported"},
        {"exclusionShowsWindow", "PanelWindowContract::exclusionHasNoSideEffects"},
        {"orderFrontDoesNothing", "PanelWindowContract::showingDoesNotTakeFocus"},
        {"orderFrontTakesFocus", "PanelWindowContract::showingDoesNotTakeFocus"},
        {"compositingIsReportedTwice", "PanelWindowContract::notifiesOfCompositingChange"},
        {"compositingIsNotReported", "PanelWindowContract::notifiesOfCompositingChange"},
        {"makeKeyDoesNothing", "PanelKeyboardContract::makeKeyFocusesPanel"},
        {"makeKeyAlwaysReportsApplied", "PanelKeyboardContract::makeKeyOfHiddenWindowIsNotApplied"},
        {"resignKeyDoesNothing", "PanelKeyboardContract::resignKeyReturnsFocus"},
        {"resignKeyAffectsAnyPanel", "PanelKeyboardContract::resignKeyOfOtherPanelDoesNothing"},
        {"resignKeyHidesPanel", "PanelKeyboardContract::resignKeyReturnsFocus"},
        {"clickThroughIsOneRowTooTall", "ClickThroughContract::theEdgesAreExact"},
        {"clickThroughIsOneColumnTooNarrow", "ClickThroughContract::theEdgesAreExact"},
        {"clickThroughUsesScreenCoordinates", "ClickThroughContract::theEdgesAreExact"},
        {"emptyRectangleIsIgnored", "ClickThroughContract::emptyRectangleDisablesClickThrough"},
        {"pressesAreReportedTwice", "GlobalHotkeysContract::pressIsDeliveredOnce"},
        {"registrationsAreOffByOne", "GlobalHotkeysContract::pressIsDeliveredOnce"},
        {"pressesAreReportedOffMainThread", "GlobalHotkeysContract::pressIsDeliveredOnce"},
        {"removeHandlerDoesNothing", "GlobalHotkeysContract::removedHandlerIsNotCalled"},
        {"oneKeyIsUnsupported", "GlobalHotkeysContract::everyBindableKeyWorks"},
        {"shiftIsIgnored", "GlobalHotkeysContract::distinguishesModifiers"},
        {"unsupportedKeysAreAccepted", "GlobalHotkeysContract::unsupportedKeyIsRefused"},
        {"refusalsAreReportedAsSuccess", "GlobalHotkeysContract::otherProgramsHotkeyIsRefused"},
        {"refusalsHaveWrongKind", "GlobalHotkeysContract::ownDuplicateIsRefused"},
        {"registrationsAreNotUnique", "GlobalHotkeysContract::registrationsAreUnique"},
        {"unregisterDoesNothing", "GlobalHotkeysContract::unregisterReleasesKey"},
        {"monitorInterceptsNothing", "KeyMonitorContract::interceptsKeysBeforeTextField"},
        {"monitorRemoveDoesNothing", "KeyMonitorContract::removeRestoresDelivery"},
        {"escapeIsNotFlagged", "KeyMonitorContract::escapeIsFlagged"},
        {"modifiersAreNotReported", "KeyMonitorContract::modifiersAreReported"},
        {"shiftChangesCharacter", "KeyMonitorContract::shiftDoesNotChangeCharacter"},
        {"darkModeHandlerRunsOnMotionChange", "AppearanceContract::notifiesOfDarkModeChange"},
        {"reducedMotionIsNeverReported", "AppearanceContract::notifiesOfReducedMotionChange"},
        {"urlsLoseTheirQuery", "WorkspaceContract::passesUrlUnchanged"},
        {"missingFilesAreReportedAsOpened", "WorkspaceContract::refusesMissingFile"},
        {"failuresAreNotReported", "WorkspaceContract::reportsFailure"},
        {"accessoryResultHasNoReason", "ShellContract::resultsAreRepeatable"},
        {"activateDoesNothing", "ShellContract::activateBringsWindowToFront"},
        {"makeOrdinaryShowsWindow", "ShellContract::ordinaryWindowCanBeActivated"},
        {"osVersionHasTwoLines", "SystemFactsContract::osVersionIsOneLine"},
        {"cpuArchIsUnknown", "SystemFactsContract::cpuArchIsKnown"},
        {"captureToolMakesSound", "SystemFactsContract::captureToolHasFixedArguments"},
        {"screenLayoutIsEmpty", "SystemFactsContract::screenLayoutHoldsTheFirstScreens"},
        {"supportDirectoryIsRelative",
         "SystemFactsContract::supportDirectoryIsAbsoluteAndNotCreated"},
        {"preferencesAreNotPersisted", "UserDefaultsContract::secondInstanceReadsFlushedValues"},
    };
    QMap<QString, QString> mistakes;
    for (const auto &[name, test] : table)
        mistakes.insert(QString::fromLatin1(name), QString::fromLatin1(test));
    return mistakes;
}

std::unique_ptr<Platform> withMistake(std::unique_ptr<Platform> platform, const QString &name)
{
    if (!injectableMistakes().contains(name))
        qFatal("Unknown mistake: %s", qPrintable(name));
    return std::make_unique<FaultyPlatform>(std::move(platform), name);
}

} // namespace quellora
