#pragma once

#include "base/VantiroConfig.h"
#include "history/PendingRemovals.h"
#include "history/ThreadController.h"
#include "history/ThreadRetention.h"
#include "overlay/AccountVisit.h"
#include "overlay/AnswerNotice.h"
#include "overlay/AnswerReader.h"
#include "overlay/AnswerTextSize.h"
#include "overlay/FindModel.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayConfig.h"
#include "overlay/OverlayExport.h"
#include "overlay/OverlayHistory.h"
#include "overlay/OverlayLook.h"
#include "overlay/OverlayMirror.h"
#include "overlay/OverlayModel.h"
#include "overlay/OverlayPresenter.h"
#include "overlay/OverlaySettings.h"
#include "overlay/OverlayWorkspace.h"
#include "overlay/PanelMemory.h"
#include "overlay/PanelPlacement.h"
#include "overlay/ResponseScrollbarModel.h"
#include "page/AppTheme.h"
#include "page/ResponseDisplay.h"
#include "page/StreamingRenderer.h"
#include "panels/BottomPanelsModel.h"
#include "panels/HamburgerMenuModel.h"
#include "query/PictureImport.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

class QQmlEngine;

namespace quellora {

class HotkeyManager;
class NotificationCenter;
class PageSurface;
class PermissionChecker;
class Platform;
class ProxyQueryService;
class SessionManager;
class Settings;
class ThreadLibrary;
class ThreadSaver;
class UserDefaults;

/// Coordinates the overlay: owns the panel and forwards each user action to the responsible
/// collaborator. Created after sign-in, destroyed at sign-out. Main thread only.
class OverlayWindowController : public QObject, public OverlayPresenter
{
    Q_OBJECT
public:
    /// Not owned unless stated otherwise; all must outlive the controller.
    struct Collaborators
    {
        Platform &platform;
        Settings &settings;
        /// Stores the hot keys, the prompts and the panel's places.
        UserDefaults &defaults;
        NotificationCenter &notifications;
        SessionManager &session;
        ProxyQueryService &service;
        QQmlEngine &engine;
        /// Displays the pages; owned.
        std::unique_ptr<PageSurface> surface;
        /// QML component that shows the surface; empty for none.
        QUrl responseView;
        /// Saves threads to disk; may be null.
        ThreadSaver *saver = nullptr;
        BackendEndpoints endpoints;
        QueryOrchestrator::Capture capture;
        std::function<void()> quit;
        HotkeyManager &hotkeys;
        /// Threads stored on disk; without it there is no History.
        ThreadLibrary *library = nullptr;
        /// Problems found at start-up; may be null.
        PermissionChecker *permissions = nullptr;
        /// Asks for the files of exports; without it nothing is exported.
        FileChooser *fileChooser = nullptr;
        /// Asks the backend for a new configuration; may be empty.
        std::function<void()> refreshConfiguration = {};
    };

    OverlayWindowController(const VantiroConfig &config, Collaborators collaborators);
    ~OverlayWindowController() override;

    void show() override;
    void closeWindow() override;
    void finishAtOnce() override;
    void triggerCaptureAndSend(CaptureTarget target) override
    {
        m_orchestrator->triggerCaptureAndSend(target);
    }
    void captureNoSend() override { m_orchestrator->captureNoSend(); }
    void captureAndSendPrompt(const QString &prompt) override
    {
        m_orchestrator->captureAndSendPrompt(prompt);
    }
    void clearContent() override;
    void toggleVisibility() override;
    void adjustOpacity(double delta) override;
    void startNewThread() override;
    void toggleClicks() override;
    void retry() override { m_orchestrator->retry(); }
    void showNotice(const QString &text) override;
    void applyConfigAtStart(const AppConfigResponse &config) override;

    /// Applies the opacity slider's value, which is in 0..1.
    void sliderChanged(double value);
    void toggleHamburgerMenu();
    /// Logs out, then emits sessionExpired() like the status item's Sign Out.
    void signOutClicked();

    bool isVisible() const { return m_isVisible; }
    NonFocusPanel &panel() { return m_panel; }
    OverlayModel &overlayModel() { return m_overlay; }
    BottomPanelsModel &panelsModel() { return m_panels; }
    HamburgerMenuModel &menuModel() { return m_menu; }
    OverlaySettings &settings() { return m_settings; }
    OverlayLook &look() { return m_look; }
    ServiceMessages &messages() { return m_messages; }
    /// Null without a library.
    OverlayHistory *history() { return m_history.get(); }
    ThreadController &threads() { return m_threads; }
    QueryOrchestrator &orchestrator() { return *m_orchestrator; }

private:
    /// Logs "init" and returns its argument.
    static Collaborators logInit(Collaborators collaborators);
    void configurePanel();
    void setupContentView();
    void wireOverlay();
    void wirePanels();
    void openAccountPage();
    void applyOpacity(double alpha);
    /// Where the panel was with the present screens, unless the user wants it as configured.
    std::optional<PanelMemory::Place> recalledPlace() const;
    void rememberPlace();
    void followScreens();
    void showAnswerTextSize();
    void updateClickThroughState();
    void copyAnswer();
    void editLastQuestion();
    /// Offers an undo of what the user removes.
    void setupUndo();
    void deleteNote(const QUuid &noteId);
    void attachPicture(const OfferedPicture &picture);
    void showVersionOfLastTurn(int position);
    void setupExport();
    /// Gets the panel out of the way of a dialog that it would cover, and back.
    void makeRoomForDialog(bool isOpen);
    /// Gives freed memory back to the system a while after a page was shown.
    void setupMemoryReturn();

    Collaborators m_collaborators;
    VantiroConfig m_config;
    /// Opens all URLs and files for the panel.
    OverlayWorkspace m_workspace;
    OverlayModel m_overlay;
    FindModel m_find;
    BottomPanelsModel m_panels;
    HamburgerMenuModel m_menu;
    ResponseScrollbarModel m_scrollbar;
    PendingRemovals m_removals;
    std::unique_ptr<OverlayHistory> m_history;
    /// Null without a library.
    std::unique_ptr<ThreadRetention> m_retention;
    OverlaySettings m_settings;
    OverlayLook m_look;
    /// Declared after the models its view shows, so that it is destroyed before them.
    NonFocusPanel m_panel;
    PanelPlacement m_placement;
    PanelMemory m_memory;
    /// Of the screens, as last seen.
    QString m_arrangement;
    AnswerTextSize m_answerTextSize;
    ThemeController m_theme;
    ResponseDisplay m_display;
    StreamingRenderer m_stream;
    ServiceMessages m_messages;
    ThreadController m_threads;
    std::unique_ptr<QueryOrchestrator> m_orchestrator;
    AnswerNotice m_notice;
    AnswerReader m_reader;
    std::unique_ptr<OverlayMirror> m_mirror;
    AccountVisit m_accountVisit;
    std::unique_ptr<OverlayConfig> m_configuration;
    /// Null without a file chooser.
    std::unique_ptr<OverlayExport> m_export;
    QTimer m_memoryReturn;
    bool m_isVisible = false;
    bool m_isHiddenForDialog = false;
};

} // namespace quellora
