#include "overlay/OverlaySettings.h"

#include "base/UserDefaults.h"
#include "history/ThreadController.h"
#include "hotkeys/HotkeyCombo.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayModel.h"
#include "page/ResponseDisplay.h"
#include "panels/BottomPanelsModel.h"
#include "platform/Platform.h"

#include <QGuiApplication>

#include <utility>

namespace quellora {
namespace {

QVariantMap displayTexts(const HotkeyCombos &combos, const Vocabulary &words)
{
    QVariantMap texts;
    for (const HotkeyActionInfo &row : hotkeyActions)
        texts.insert(row.jsonKey, HotkeyCombo::displayString(combos[row.action], words));
    return texts;
}

} // namespace

OverlaySettings::OverlaySettings(Platform &platform, Workspace &workspace, UserDefaults &defaults,
                                 HotkeyManager &hotkeys, ModelListModel &models,
                                 const HotkeyCombos &configFileHotkeys)
    : m_platform(platform)
    , m_workspace(workspace)
    , m_defaults(defaults)
    , m_words(platform.vocabulary())
    , m_keyMonitor(platform.keyMonitor())
    , m_rebinding(hotkeys, defaults, m_keyMonitor, configFileHotkeys)
    , m_model(models, m_rebinding, m_words)
{}

void OverlaySettings::attach(const Targets &targets, const BackendEndpoints &endpoints)
{
    m_targets.emplace(targets);
    m_keyMonitor.setPanel(&targets.panel);

    targets.display.setResponseTextColorHex(
        m_defaults.stringValue(QLatin1String(DefaultsKey::responseTextColorHex)));
    const QString color = targets.display.responseTextColorHex().value_or(QString());
    targets.overlay.setResponseTextColor(color);
    m_model.setResponseTextColorHex(color);

    connect(&targets.theme, &ThemeController::themeApplied, this, &OverlaySettings::showTheme);
    const auto mode = m_defaults.stringValue(QLatin1String(DefaultsKey::appearance));
    targets.theme.setMode(appearanceModeFromText(mode.value_or(QString())));
    targets.panels.setAppearanceMode(appearanceModeText(targets.theme.mode()));
    m_model.setAppearanceMode(targets.panels.appearanceMode());

    connect(&m_rebinding, &HotkeyRebinding::hotkeysConfigChanged, this, [this] {
        applyHotkeys();
        m_targets->display.pushHint();
    });
    applyHotkeys();
    targets.overlay.setStopShortcut(HotkeyCombo::displayString(QStringLiteral("cmd+."), m_words));

    connect(&m_model, &SettingsModel::closeRequested, this, &OverlaySettings::close);
    connect(&m_model, &SettingsModel::modelSelected, &targets.panels,
            &BottomPanelsModel::selectModel);
    connect(&m_model, &SettingsModel::appearanceChosen, this,
            [this](const QString &text) { setAppearanceMode(appearanceModeFromText(text)); });
    connect(&m_model, &SettingsModel::responseTextColorChosen, this,
            &OverlaySettings::setResponseTextColorHex);
    connect(&m_model, &SettingsModel::startNewThreadPerSendToggled, &targets.threads,
            &ThreadController::setStartNewThreadPerSendEnabled);
    connect(&m_model, &SettingsModel::dontClearPromptAfterSendToggled, &targets.threads,
            &ThreadController::setDontClearPromptAfterSendEnabled);
    connect(&m_model, &SettingsModel::helpRequested, this,
            [this, help = endpoints.help()] { m_workspace.openUrl(help); });
    // Nobody can press a combo for a panel that is not there.
    connect(&targets.panel, &QWindow::visibleChanged, this, [this](bool isVisible) {
        if (!isVisible)
            m_rebinding.cancelHotkeyCapture();
    });
    followPanels();
    followScreens();
}

void OverlaySettings::followScreens()
{
    const QString key = QLatin1String(DefaultsKey::captureAllScreens);
    m_model.setCaptureAllScreens(m_defaults.boolValue(key).value_or(false));
    connect(&m_model, &SettingsModel::captureAllScreensChosen, this, [this, key](bool isEnabled) {
        m_defaults.setBool(key, isEnabled);
        m_model.setCaptureAllScreens(isEnabled);
    });
    const auto offer = [this] {
        m_model.setScreenChoiceOffered(!m_platform.captureTool().allScreensArguments.isEmpty() &&
                                       QGuiApplication::screens().size() > 1);
    };
    // Queued: the list of screens is complete afterwards.
    connect(qGuiApp, &QGuiApplication::screenAdded, this, offer, Qt::QueuedConnection);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, offer, Qt::QueuedConnection);
    offer();
}

void OverlaySettings::followPanels()
{
    BottomPanelsModel &panels = m_targets->panels;
    const auto follow = [this, &panels](auto signal, auto update) {
        connect(&panels, signal, this, update);
        update();
    };
    follow(&BottomPanelsModel::selectedModelChanged,
           [this, &panels] { m_model.setSelectedModelId(panels.selectedModelId()); });
    follow(&BottomPanelsModel::selectedModelChanged,
           [this, &panels] { nameAnswerer(panels.answererName()); });
    follow(&BottomPanelsModel::startNewThreadPerSendEnabledChanged, [this, &panels] {
        m_model.setStartNewThreadPerSendEnabled(panels.startNewThreadPerSendEnabled());
    });
    follow(&BottomPanelsModel::dontClearPromptAfterSendEnabledChanged, [this, &panels] {
        m_model.setDontClearPromptAfterSendEnabled(panels.dontClearPromptAfterSendEnabled());
    });
}

void OverlaySettings::nameAnswerer(const QString &name)
{
    m_rebinding.setAnswererName(name);
    m_model.setAnswererName(name);
    if (name == m_targets->display.answererName())
        return;
    m_targets->display.setAnswererName(name);
    m_targets->display.pushHint();
}

void OverlaySettings::setCaptureExclusion(const Capability &exclusion)
{
    m_model.setCaptureNote(
        exclusion.isApplied()
            ? QString()
            : QStringLiteral("Other programs' screenshots and screen sharing show this panel."));
}

void OverlaySettings::open()
{
    if (!m_targets || m_model.isOpen())
        return;
    Q_EMIT aboutToOpen();
    m_tookKeyboard = !m_targets->panel.isActive();
    if (m_tookKeyboard)
        m_targets->panel.makeKey();
    m_targets->overlay.setSheetOpen(true);
    m_model.setOpen(true);
}

void OverlaySettings::close()
{
    if (!m_model.isOpen())
        return;
    m_model.setOpen(false);
    m_rebinding.cancelHotkeyCapture();
    m_targets->overlay.setSheetOpen(false);
    if (std::exchange(m_tookKeyboard, false))
        m_targets->panel.resignKey();
}

void OverlaySettings::applyHotkeys()
{
    const HotkeyCombos &combos = m_rebinding.hotkeysConfig();
    m_targets->display.setCaptureHotkey(
        HotkeyCombo::displayString(combos[HotkeyAction::Capture], m_words));
    m_targets->panels.setHotkeys(displayTexts(combos, m_words));
}

void OverlaySettings::setAppearanceMode(AppearanceMode mode)
{
    const QString text = appearanceModeText(mode);
    m_defaults.setString(QLatin1String(DefaultsKey::appearance), text);
    m_model.setAppearanceMode(text);
    m_targets->panels.setAppearanceMode(text);
    m_targets->theme.setMode(mode);
}

void OverlaySettings::setResponseTextColorHex(const QString &hex)
{
    const QString key = QLatin1String(DefaultsKey::responseTextColorHex);
    if (hex.isEmpty())
        m_defaults.remove(key);
    else
        m_defaults.setString(key, hex);
    m_model.setResponseTextColorHex(hex);
    m_targets->overlay.setResponseTextColor(hex);
    m_targets->display.setResponseTextColorHex(hex.isEmpty() ? std::nullopt : std::optional(hex));
    m_targets->display.applyTheme();
}

void OverlaySettings::showTheme(AppTheme theme)
{
    m_model.setLightTheme(theme == AppTheme::Light);
    m_targets->overlay.setAppliedTheme(theme);
    m_targets->display.setAppliedTheme(theme);
    m_targets->display.applyTheme();
}

} // namespace quellora
