#pragma once

#include "base/AppConfig.h"
#include "base/PromptPresets.h"
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

/// Opens and closes the settings sheet, and applies settings that must be pushed to the overlay
/// when they change: theme, text colour, hot keys and the model's name. Main thread only.
class OverlaySettings : public QObject
{
    Q_OBJECT
public:
    /// What the settings are applied to. All must outlive this object, except the panel, which must
    /// be destroyed before the models it shows.
    struct Targets
    {
        NonFocusPanel &panel;
        OverlayModel &overlay;
        BottomPanelsModel &panels;
        ThemeController &theme;
        ResponseDisplay &display;
    };

    /// @param workspace opens the help page
    /// @param defaults stores the hot keys and the prompts
    /// @param configFileHotkeys hot keys restored by a reset
    OverlaySettings(Platform &platform, Workspace &workspace, Settings &settings,
                    UserDefaults &defaults, HotkeyManager &hotkeys, ModelListModel &models,
                    const HotkeyCombos &configFileHotkeys);

    /// Applies the settings now and whenever they change. Call once.
    void attach(const Targets &targets, const BackendEndpoints &endpoints);
    /// Shows a note in the sheet unless the panel is excluded from screen captures.
    void setCaptureExclusion(const Capability &exclusion);
    /// Opens the sheet, which has keyboard focus while open.
    void open();
    /// Closes the sheet, cancels hot-key recording and returns keyboard focus to where it was
    /// before.
    void close();

    /// Offers what concerns the stored threads; both must outlive this object.
    void setThreads(ThreadLibrary &library, HistoryController &history)
    {
        m_model.setThreads(library, history);
    }

    SettingsModel &model() { return m_model; }
    HotkeyRebinding &rebinding() { return m_rebinding; }

Q_SIGNALS:
    /// Emitted before the sheet opens, so that other sheets can close.
    void aboutToOpen();

private:
    void applyHotkeys();
    /// The key that runs an action at present, as the user knows it; empty if there is none.
    QString keyText(const HotkeyId &id) const;
    /// Updates all texts that contain the display name of the answering model.
    void updateAnswererName();
    void setTheme(AppTheme theme);
    /// Offers the choice of screens to capture only while there are several.
    void watchScreens();

    Platform &m_platform;
    Workspace &m_workspace;
    Settings &m_settings;
    ModelListModel &m_models;
    Vocabulary m_words;
    PanelKeyMonitor m_keyMonitor;
    HotkeyRebinding m_rebinding;
    PromptPresets m_prompts;
    SettingsModel m_model;
    std::optional<Targets> m_targets;
    /// Whether opening the sheet took keyboard focus from another application.
    bool m_tookKeyboard = false;
};

} // namespace quellora
