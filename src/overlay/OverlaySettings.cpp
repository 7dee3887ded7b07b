#include "overlay/OverlaySettings.h"

#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayModel.h"
#include "page/ResponseDisplay.h"
#include "panels/BottomPanelsModel.h"
#include "platform/Notifications.h"
#include "platform/Platform.h"

#include <QGuiApplication>

#include <utility>

namespace quellora {
namespace {

/// Names the button when no key works.
const QString captureButton = QStringLiteral("Capture and send");

} // namespace

OverlaySettings::OverlaySettings(Platform &platform, Workspace &workspace, Settings &settings,
                                 UserDefaults &defaults, HotkeyManager &hotkeys,
                                 ModelListModel &models, const HotkeyCombos &configFileHotkeys)
    : m_platform(platform)
    , m_workspace(workspace)
    , m_settings(settings)
    , m_models(models)
    , m_words(platform.vocabulary())
    , m_keyMonitor(platform.keyMonitor())
    , m_rebinding(hotkeys, defaults, m_keyMonitor, configFileHotkeys)
    , m_prompts(defaults)
    , m_model(settings, models, m_rebinding, m_words, platform.shortcutGuide())
{
    m_model.setPrompts(m_prompts);
}

void OverlaySettings::attach(const Targets &targets, const BackendEndpoints &endpoints)
{
    m_targets.emplace(targets);
    m_keyMonitor.setPanel(&targets.panel);

    targets.display.setResponseTextColorHex(m_settings.responseTextColorHex());
    connect(&m_settings, &Settings::responseTextColorHexChanged, this, [this] {
        m_targets->display.setResponseTextColorHex(m_settings.responseTextColorHex());
        m_targets->display.applyTheme();
    });

    connect(&targets.theme, &ThemeController::themeApplied, this, &OverlaySettings::setTheme);
    connect(&m_settings, &Settings::appearanceChanged, this,
            [this] { m_targets->theme.setMode(m_settings.appearance()); });
    targets.theme.setMode(m_settings.appearance());

    const auto listPrompts = [this] { m_targets->panels.prompts()->setPrompts(m_prompts.list()); };
    connect(&m_prompts, &PromptPresets::changed, this, listPrompts);
    listPrompts();

    const auto apply = [this] {
        applyHotkeys();
        m_targets->display.pushHint();
    };
    connect(&m_rebinding, &HotkeyRebinding::hotkeysConfigChanged, this, apply);
    connect(&m_rebinding.manager(), &HotkeyManager::deliveryChanged, this, apply);
    connect(&m_rebinding.manager(), &HotkeyManager::promptsChanged, this, apply);
    applyHotkeys();
    targets.overlay.setStopShortcut(HotkeyCombo::displayString(QStringLiteral("cmd+."), m_words));

    connect(&m_model, &SettingsModel::closeRequested, this, &OverlaySettings::close);
    connect(&m_model, &SettingsModel::helpRequested, this,
            [this, help = endpoints.help()] { m_workspace.openUrl(help); });
    // A hidden panel cannot record a hot key.
    connect(&targets.panel, &QWindow::visibleChanged, this, [this](bool isVisible) {
        if (!isVisible)
            m_rebinding.cancelHotkeyCapture();
    });
    connect(&m_models, &ModelListModel::selectedChanged, this,
            &OverlaySettings::updateAnswererName);
    updateAnswererName();
    watchScreens();
    m_model.setNoticeOffered(m_platform.notifications().support().state() !=
                             Capability::State::Unsupported);
}

void OverlaySettings::watchScreens()
{
    const auto update = [this] {
        m_model.setScreenChoiceOffered((m_platform.screenSource() ||
                                        !m_platform.captureTool().allScreensArguments.isEmpty()) &&
                                       QGuiApplication::screens().size() > 1);
    };
    // Queued because QGuiApplication::screens() is updated after the signal.
    connect(qGuiApp, &QGuiApplication::screenAdded, this, update, Qt::QueuedConnection);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, update, Qt::QueuedConnection);
    update();
}

void OverlaySettings::updateAnswererName()
{
    const QString name = m_models.answererName();
    m_rebinding.setAnswererName(name);
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
    m_tookKeyboard = !m_targets->panel.isKey();
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
    const QString captureKey = keyText(HotkeyAction::Capture);
    m_targets->display.setCaptureHotkey(captureKey.isEmpty() ? captureButton : captureKey);
    QVariantMap texts;
    for (const HotkeyId &id : m_rebinding.manager().ids())
        texts.insert(id.jsonKey(), keyText(id));
    m_targets->panels.setHotkeys(texts);
}

QString OverlaySettings::keyText(const HotkeyId &id) const
{
    switch (m_rebinding.manager().delivery()) {
    case HotkeyManager::Delivery::Own:
    case HotkeyManager::Delivery::OwnPartly:
        return HotkeyCombo::displayString(m_rebinding.hotkeysConfig()[id], m_words);
    case HotkeyManager::Delivery::Desktop:
        return m_rebinding.manager().desktopKey(id);
    case HotkeyManager::Delivery::None:
        return {};
    }
    Q_UNREACHABLE();
}

void OverlaySettings::setTheme(AppTheme theme)
{
    m_model.setLightTheme(theme == AppTheme::Light);
    m_targets->overlay.setAppliedTheme(theme);
    m_targets->display.setAppliedTheme(theme);
    m_targets->display.applyTheme();
}

} // namespace quellora
