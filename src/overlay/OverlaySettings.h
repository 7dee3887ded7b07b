#pragma once

#include "base/AppConfig.h"
#include "base/VantiroConfig.h"
#include "hotkeys/HotkeyRebinding.h"
#include "overlay/PanelKeyMonitor.h"
#include "page/AppTheme.h"
#include "platform/Vocabulary.h"
#include "sheets/settings/SettingsModel.h"

#include <QObject>

#include <optional>

namespace quellora {

class BottomPanelsModel;
class Capability;
class HotkeyManager;
class ModelListModel;
class NonFocusPanel;
class OverlayModel;
class Platform;
class ResponseDisplay;
class UserDefaults;
class Workspace;

/// The overlay's part of the settings: opens and closes the sheet, and brings into force what is
/// not read where it is needed. Main thread only.
class OverlaySettings : public QObject
{
    Q_OBJECT
public:
    /// What the settings act on. Everything must outlive this object, but for the panel, which goes
    /// before the models that it shows.
    struct Targets
    {
        NonFocusPanel &panel;
        OverlayModel &overlay;
        BottomPanelsModel &panels;
        ThemeController &theme;
        ResponseDisplay &display;
    };

    /// @param workspace opens the help
    /// @param configFileHotkeys what resetting a hot key goes back to
    /// @param defaults keeps the hot keys
    OverlaySettings(Platform &platform, Workspace &workspace, Settings &settings,
                    UserDefaults &defaults, HotkeyManager &hotkeys, ModelListModel &models,
                    const HotkeyCombos &configFileHotkeys);

    /// Applies the settings and follows their changes from then on. Once.
    void attach(const Targets &targets, const BackendEndpoints &endpoints);
    /// Says in the sheet what the desktop cannot give.
    void setCaptureExclusion(const Capability &exclusion);
    /// Opens the sheet, which has the keyboard while it is open.
    void open();
    /// Closes it, ends a recording and gives the keyboard back to the program it was taken from.
    void close();

    SettingsModel &model() { return m_model; }
    HotkeyRebinding &rebinding() { return m_rebinding; }

Q_SIGNALS:
    /// Whatever else covers the panel has to go first.
    void aboutToOpen();

private:
    void applyHotkeys();
    /// Brings the name of who answers into every text that has it.
    void nameAnswerer();
    void showTheme(AppTheme theme);
    void followScreens();

    Platform &m_platform;
    Workspace &m_workspace;
    Settings &m_settings;
    ModelListModel &m_models;
    Vocabulary m_words;
    PanelKeyMonitor m_keyMonitor;
    HotkeyRebinding m_rebinding;
    SettingsModel m_model;
    std::optional<Targets> m_targets;
    /// Whether another program had the keyboard when the sheet opened.
    bool m_tookKeyboard = false;
};

} // namespace quellora
