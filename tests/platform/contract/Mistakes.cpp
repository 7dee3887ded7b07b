#include "platform/contract/Mistakes.h"

#include "base/UserDefaults.h"

#include <QPointer>
#include <QWindow>

#include <thread>
#include <utility>

namespace quellora {
namespace {

/// The name of the planted mistake, asked for where it would be made.
class Mistake
{
public:
    explicit Mistake(QString name) : m_name(std::move(name)) {}
    bool is(const char *name) const { return m_name == QLatin1String(name); }

private:
    QString m_name;
};

class MistakenPanel : public PanelWindow
{
public:
    MistakenPanel(PanelWindow &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    Capability applyPanelTraits(QWindow &window) override
    {
        return m_mistake.is("traitsAreNotApplied") ? Capability::applied()
                                                   : m_real.applyPanelTraits(window);
    }
    Capability excludeFromCapture(QWindow &window) override
    {
        m_real.excludeFromCapture(window);
        if (m_mistake.is("exclusionIsSilent"))
            return Capability::unsupported(QString());
        if (m_mistake.is("exclusionIsHalf"))
            return Capability::bestEffort(QStringLiteral("Some captures show it"));
        if (m_mistake.is("exclusionShowsTheWindow"))
            window.show();
        return m_real.excludeFromCapture(window);
    }
    Capability setClickThrough(QWindow &window, const QRect &rect) override
    {
        if (m_mistake.is("clickThroughIsARowTooLong") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.adjusted(0, 0, 0, 1));
        if (m_mistake.is("clickThroughIsAColumnTooNarrow") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.adjusted(1, 0, 0, 0));
        if (m_mistake.is("emptyRectangleIsIgnored") && rect.isEmpty())
            return Capability::applied();
        if (m_mistake.is("clickThroughIsOnTheScreen") && !rect.isEmpty())
            return m_real.setClickThrough(window, rect.translated(window.position()));
        return m_real.setClickThrough(window, rect);
    }
    Capability orderFront(QWindow &window) override
    {
        if (m_mistake.is("showingDoesNothing"))
            return Capability::applied();
        const Capability result = m_real.orderFront(window);
        if (m_mistake.is("showingTakesTheKeyboard"))
            m_real.makeKey(window);
        return result;
    }
    Capability makeKey(QWindow &window) override
    {
        if (m_mistake.is("makeKeyDoesNothing"))
            return Capability::applied();
        m_lastKey = &window;
        if (m_mistake.is("makeKeyClaimsSuccess")) {
            m_real.makeKey(window);
            return Capability::applied();
        }
        return m_real.makeKey(window);
    }
    void resignKey(QWindow &window) override
    {
        if (m_mistake.is("resignKeyDoesNothing"))
            return;
        if (m_mistake.is("resignKeyTakesItFromAnyPanel") && m_lastKey)
            m_real.resignKey(*m_lastKey);
        m_real.resignKey(window);
        if (m_mistake.is("resignKeyHidesThePanel"))
            window.hide();
    }
    bool isCompositing() const override { return m_real.isCompositing(); }
    void onCompositingChanged(std::function<void()> handler) override
    {
        if (m_mistake.is("compositingIsToldTwice"))
            m_real.onCompositingChanged([handler] {
                handler();
                handler();
            });
        else if (!m_mistake.is("compositingIsNotTold"))
            m_real.onCompositingChanged(std::move(handler));
    }

private:
    PanelWindow &m_real;
    const Mistake &m_mistake;
    QPointer<QWindow> m_lastKey;
};

class MistakenHotkeys : public GlobalHotkeys
{
public:
    MistakenHotkeys(GlobalHotkeys &real, const Mistake &mistake) : m_real(real), m_mistake(mistake)
    {}

    void installHandler(std::function<void(Registration)> onPress) override
    {
        if (m_mistake.is("pressesCountTwice"))
            m_real.installHandler([onPress](Registration id) {
                onPress(id);
                onPress(id);
            });
        else if (m_mistake.is("idsAreShifted"))
            m_real.installHandler([onPress](Registration id) { onPress(id + 1); });
        else if (m_mistake.is("pressesComeOnAnotherThread"))
            m_real.installHandler([onPress](Registration id) { std::thread(onPress, id).join(); });
        else
            m_real.installHandler(std::move(onPress));
    }
    void removeHandler() override
    {
        if (!m_mistake.is("removedHandlerStays"))
            m_real.removeHandler();
    }
    Result registerHotkey(QKeyCombination combo) override
    {
        if (m_mistake.is("oneKeyIsMissing") && combo.key() == Qt::Key_QuoteLeft)
            return tl::unexpected(Failure{Failure::Kind::UnsupportedKey, 1});
        if (m_mistake.is("unknownKeysRegister") && combo.key() == Qt::Key_F5)
            return 5;
        if (m_mistake.is("shiftIsIgnored"))
            combo = (combo.keyboardModifiers() & ~Qt::ShiftModifier) | combo.key();
        const Result result = m_real.registerHotkey(combo);
        if (m_mistake.is("refusalsAreHidden") && !result)
            return 9;
        if (m_mistake.is("refusalsHaveNoReason") && !result)
            return tl::unexpected(Failure{Failure::Kind::Unavailable, 0});
        if (m_mistake.is("registrationsAreAllOne") && result)
            return 1;
        return result;
    }
    void unregisterHotkey(Registration registration) override
    {
        if (!m_mistake.is("unregisteringDoesNothing"))
            m_real.unregisterHotkey(registration);
    }

private:
    GlobalHotkeys &m_real;
    const Mistake &m_mistake;
};

class MistakenMonitor : public KeyMonitor
{
public:
    MistakenMonitor(KeyMonitor &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    void install(std::function<void(const KeyDown &)> onKeyDown) override
    {
        if (m_mistake.is("monitorTakesNothing"))
            return;
        m_real.install([this, onKeyDown](const KeyDown &key) {
            KeyDown told = key;
            if (m_mistake.is("escapeIsNotFlagged"))
                told.isEscape = false;
            if (m_mistake.is("heldModifiersAreNotTold"))
                told.modifiers = {};
            if (m_mistake.is("shiftChangesTheCharacter") && told.modifiers & Qt::ShiftModifier)
                told.character = told.character.toUpper();
            onKeyDown(told);
        });
    }
    void remove() override
    {
        if (!m_mistake.is("monitorStays"))
            m_real.remove();
    }

private:
    KeyMonitor &m_real;
    const Mistake &m_mistake;
};

class MistakenAppearance : public Appearance
{
public:
    MistakenAppearance(Appearance &real, const Mistake &mistake) : m_real(real), m_mistake(mistake)
    {}

    bool isDark() const override { return m_real.isDark(); }
    void onChanged(std::function<void()> handler) override
    {
        if (m_mistake.is("darknessIsToldOnMotion"))
            m_real.onMotionChanged(std::move(handler));
        else
            m_real.onChanged(std::move(handler));
    }
    bool reducesMotion() const override
    {
        return !m_mistake.is("motionIsNeverReduced") && m_real.reducesMotion();
    }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_real.onMotionChanged(std::move(handler));
    }

private:
    Appearance &m_real;
    const Mistake &m_mistake;
};

class MistakenWorkspace : public Workspace
{
public:
    MistakenWorkspace(Workspace &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    QFuture<OpenResult> openUrl(const QUrl &url) override
    {
        const auto opening = m_real.openUrl(
            m_mistake.is("addressesLoseTheirQuery") ? url.adjusted(QUrl::RemoveQuery) : url);
        return m_mistake.is("failuresAreNotTold") ? fine() : opening;
    }
    QFuture<OpenResult> openFile(const QString &path) override
    {
        const auto opening = m_real.openFile(path);
        return m_mistake.is("missingFilesAreFine") ? fine() : opening;
    }

private:
    static QFuture<OpenResult> fine() { return QtFuture::makeReadyFuture(OpenResult()); }

    Workspace &m_real;
    const Mistake &m_mistake;
};

class MistakenShell : public ApplicationShell
{
public:
    MistakenShell(ApplicationShell &real, const Mistake &mistake) : m_real(real), m_mistake(mistake)
    {}

    Capability becomeAccessory() override
    {
        return m_mistake.is("accessoryHasNoReason") ? Capability::bestEffort(QString())
                                                    : m_real.becomeAccessory();
    }
    Capability makeOrdinary(QWindow &window) override
    {
        if (m_mistake.is("ordinaryWindowsAreShown"))
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

class MistakenDevice : public DeviceInfo
{
public:
    MistakenDevice(DeviceInfo &real, const Mistake &mistake) : m_real(real), m_mistake(mistake) {}

    QString osVersion() const override
    {
        return m_real.osVersion() +
               (m_mistake.is("osVersionHasTwoLines") ? QStringLiteral("\nmore") : QString());
    }
    QString cpuArch() const override
    {
        return m_mistake.is("cpuArchIsAnother") ? QStringLiteral("amd64") : m_real.cpuArch();
    }

private:
    DeviceInfo &m_real;
    const Mistake &m_mistake;
};

class MistakenPlatform : public Platform
{
public:
    MistakenPlatform(std::unique_ptr<Platform> real, const QString &name)
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
    CaptureTool captureTool() const override
    {
        CaptureTool tool = m_real->captureTool();
        if (m_mistake.is("captureMakesASound"))
            tool.arguments.removeFirst();
        return tool;
    }
    Vocabulary vocabulary() const override { return m_real->vocabulary(); }
    QString applicationSupportDirectory() const override
    {
        return m_mistake.is("supportDirectoryIsRelative") ? QStringLiteral("data")
                                                          : m_real->applicationSupportDirectory();
    }
    std::unique_ptr<UserDefaults> makeUserDefaults() const override
    {
        if (m_mistake.is("preferencesAreForgotten"))
            return std::make_unique<JsonUserDefaults>();
        return m_real->makeUserDefaults();
    }

private:
    std::unique_ptr<Platform> m_real;
    Mistake m_mistake;
    MistakenPanel m_panel{m_real->panelWindow(), m_mistake};
    MistakenHotkeys m_hotkeys{m_real->globalHotkeys(), m_mistake};
    MistakenMonitor m_monitor{m_real->keyMonitor(), m_mistake};
    MistakenAppearance m_appearance{m_real->appearance(), m_mistake};
    MistakenWorkspace m_workspace{m_real->workspace(), m_mistake};
    MistakenShell m_shell{m_real->shell(), m_mistake};
    MistakenDevice m_device{m_real->deviceInfo(), m_mistake};
};

} // namespace

QMap<QString, QString> plantedMistakes()
{
    const QList<std::pair<const char *, const char *>> table{
        {"traitsAreNotApplied", "PanelWindowContract::staysAboveAClickedWindow"},
        {"exclusionIsSilent", "PanelWindowContract::exclusionIsHonest"},
        {"exclusionIsHalf", "PanelWindowContract::exclusionIsHonest"},
        {"exclusionShowsTheWindow", "PanelWindowContract::exclusionChangesNothingElse"},
        {"showingDoesNothing", "PanelWindowContract::showingTakesNothing"},
        {"showingTakesTheKeyboard", "PanelWindowContract::showingTakesNothing"},
        {"compositingIsToldTwice", "PanelWindowContract::tellsWhenCompositingChanges"},
        {"compositingIsNotTold", "PanelWindowContract::tellsWhenCompositingChanges"},
        {"makeKeyDoesNothing", "PanelKeyboardContract::makeKeyGivesTheKeyboard"},
        {"makeKeyClaimsSuccess", "PanelKeyboardContract::makeKeyOfAHiddenWindowIsNoSuccess"},
        {"resignKeyDoesNothing", "PanelKeyboardContract::resignKeyGivesItBack"},
        {"resignKeyTakesItFromAnyPanel",
         "PanelKeyboardContract::resignKeyOfAnotherPanelChangesNothing"},
        {"resignKeyHidesThePanel", "PanelKeyboardContract::resignKeyGivesItBack"},
        {"clickThroughIsARowTooLong", "ClickThroughContract::theEdgesAreExact"},
        {"clickThroughIsAColumnTooNarrow", "ClickThroughContract::theEdgesAreExact"},
        {"clickThroughIsOnTheScreen", "ClickThroughContract::theEdgesAreExact"},
        {"emptyRectangleIsIgnored", "ClickThroughContract::emptyRectangleTakesAllAgain"},
        {"pressesCountTwice", "GlobalHotkeysContract::aPressIsDeliveredOnce"},
        {"idsAreShifted", "GlobalHotkeysContract::aPressIsDeliveredOnce"},
        {"pressesComeOnAnotherThread", "GlobalHotkeysContract::aPressIsDeliveredOnce"},
        {"removedHandlerStays", "GlobalHotkeysContract::removedHandlerHearsNothing"},
        {"oneKeyIsMissing", "GlobalHotkeysContract::everyBindableKeyWorks"},
        {"shiftIsIgnored", "GlobalHotkeysContract::modifiersAreToldApart"},
        {"unknownKeysRegister", "GlobalHotkeysContract::unsupportedKeyIsRefused"},
        {"refusalsAreHidden", "GlobalHotkeysContract::anotherProgramsHotkeyIsRefused"},
        {"refusalsHaveNoReason", "GlobalHotkeysContract::ourOwnDuplicateIsRefused"},
        {"registrationsAreAllOne", "GlobalHotkeysContract::registrationsAreDistinct"},
        {"unregisteringDoesNothing", "GlobalHotkeysContract::unregisteredKeyIsSilentAndFree"},
        {"monitorTakesNothing", "KeyMonitorContract::takesPressesAheadOfTheField"},
        {"monitorStays", "KeyMonitorContract::afterRemovalTheFieldHasThem"},
        {"escapeIsNotFlagged", "KeyMonitorContract::escapeIsFlagged"},
        {"heldModifiersAreNotTold", "KeyMonitorContract::modifiersAreReported"},
        {"shiftChangesTheCharacter", "KeyMonitorContract::shiftDoesNotChangeTheCharacter"},
        {"darknessIsToldOnMotion", "AppearanceContract::tellsWhenDarknessChanges"},
        {"motionIsNeverReduced", "AppearanceContract::tellsWhenMotionChanges"},
        {"addressesLoseTheirQuery", "WorkspaceContract::handsOverTheVeryAddress"},
        {"missingFilesAreFine", "WorkspaceContract::refusesWhatIsNoFile"},
        {"failuresAreNotTold", "WorkspaceContract::tellsOfAFailure"},
        {"accessoryHasNoReason", "ShellContract::answersAreHonestAndRepeatable"},
        {"activateDoesNothing", "ShellContract::activateBringsTheWindowToTheFront"},
        {"ordinaryWindowsAreShown", "ShellContract::ordinaryWindowsStillActivate"},
        {"osVersionHasTwoLines", "SystemFactsContract::osVersionIsOneLine"},
        {"cpuArchIsAnother", "SystemFactsContract::cpuArchIsOneOfTwo"},
        {"captureMakesASound", "SystemFactsContract::captureToolHasItsArguments"},
        {"supportDirectoryIsRelative",
         "SystemFactsContract::supportDirectoryIsAbsoluteAndNotCreated"},
        {"preferencesAreForgotten", "UserDefaultsContract::aSecondInstanceSeesWhatWasFlushed"},
    };
    QMap<QString, QString> mistakes;
    for (const auto &[name, test] : table)
        mistakes.insert(QString::fromLatin1(name), QString::fromLatin1(test));
    return mistakes;
}

std::unique_ptr<Platform> withMistake(std::unique_ptr<Platform> platform, const QString &name)
{
    if (!plantedMistakes().contains(name))
        qFatal("There is no mistake called %s", qPrintable(name));
    return std::make_unique<MistakenPlatform>(std::move(platform), name);
}

} // namespace quellora
