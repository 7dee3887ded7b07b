#include "overlay/OverlayWindowController.h"

#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Log.h"
#include "base/Settings.h"
#include "base/Text.h"
#include "base/WhenFinished.h"
#include "platform/FreedMemory.h"
#include "platform/PanelProperties.h"
#include "platform/Platform.h"
#include "query/PermissionChecker.h"

#include <QAccessible>
#include <QClipboard>
#include <QDir>
#include <QGuiApplication>

#include <algorithm>
#include <chrono>
#include <utility>

namespace quellora {

namespace {

/// After a page was shown: long enough for what it took to be freed.
constexpr std::chrono::seconds memoryReturnDelay{5};

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

/// Warns about a capability that the platform provides only partly or not at all.
void logIfNotApplied(const Capability &capability)
{
    if (!capability.isApplied())
        log(QStringLiteral("WARNING: ") + capability.reason());
}

} // namespace

OverlayWindowController::OverlayWindowController(const VantiroConfig &config,
                                                 Collaborators collaborators)
    : m_collaborators(logInit(std::move(collaborators)))
    , m_config(config)
    , m_workspace(m_collaborators.platform.workspace())
    , m_panels(m_collaborators.settings)
    , m_settings(m_collaborators.platform, m_workspace, m_collaborators.settings,
                 m_collaborators.defaults, m_collaborators.hotkeys, *m_panels.models(),
                 HotkeyCombos(config.hotkeys))
    , m_panel(m_collaborators.platform.panelWindow())
    , m_placement(m_panel, config.overlay)
    , m_memory(m_collaborators.defaults)
    , m_answerTextSize(m_collaborators.settings)
    , m_theme(m_collaborators.platform.appearance())
    , m_display(*m_collaborators.surface, m_workspace, QDir::tempPath())
    , m_stream(m_display)
    , m_messages(m_stream, m_collaborators.endpoints)
    , m_threads(m_collaborators.settings, m_collaborators.saver)
    , m_orchestrator(std::make_unique<QueryOrchestrator>(QueryOrchestrator::Collaborators{
          m_collaborators.session, m_collaborators.settings, m_threads, m_messages,
          m_collaborators.service, m_stream, m_collaborators.platform.desktopSession(),
          m_collaborators.capture,
          [this] {
              const QString id = m_panels.models()->selectedId();
              return id.isEmpty() ? std::nullopt : std::optional(id);
          }}))
    , m_notice(m_collaborators.platform.notifications(), m_collaborators.settings,
               [this] { return m_isVisible; })
    , m_reader(
          {m_stream, m_overlay, m_panels, &QAccessible::isActive, [this] { return m_isVisible; }})
    , m_accountVisit(m_panel)
{
    if (m_collaborators.library) {
        m_history = std::make_unique<OverlayHistory>(
            *m_collaborators.library, m_threads, m_removals, m_collaborators.platform.vocabulary());
        m_settings.setThreads(*m_collaborators.library, m_history->controller());
        m_retention = std::make_unique<ThreadRetention>(
            m_collaborators.settings, *m_collaborators.library, m_history->controller());
    }
    configurePanel();
    setupContentView();
    m_mirror = std::make_unique<OverlayMirror>(OverlayMirror::Collaborators{
        m_messages, m_threads, *m_orchestrator, m_display, m_overlay, m_panels, m_menu});
    m_configuration = std::make_unique<OverlayConfig>(OverlayConfig::Collaborators{
        m_collaborators.session, m_messages, *m_orchestrator, *m_panels.models(), m_menu,
        m_accountVisit, m_collaborators.permissions});
    m_panels.models()->setBackend(QUrl(m_collaborators.endpoints.baseURL()));
    if (m_collaborators.refreshConfiguration)
        connect(&m_accountVisit, &AccountVisit::returned, this,
                m_collaborators.refreshConfiguration);
    if (m_collaborators.fileChooser)
        setupExport();
    setupMemoryReturn();
    connect(&m_collaborators.notifications, &NotificationCenter::configDidUpdate,
            m_configuration.get(), &OverlayConfig::applyConfig);
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive)
                    m_configuration->handleAppDidBecomeActive();
            });
    log(QStringLiteral("init complete"));
}

OverlayWindowController::~OverlayWindowController()
{
    m_orchestrator->cancelAll();
    m_removals.commitAll();
    // It listens to the panel, which is destroyed first.
    m_settings.rebinding().cancelHotkeyCapture();
}

OverlayWindowController::Collaborators OverlayWindowController::logInit(Collaborators collaborators)
{
    // Called from the first member initializer, so that "init" precedes the members' log lines.
    log(QStringLiteral("init"));
    return collaborators;
}

void OverlayWindowController::configurePanel()
{
    log(QStringLiteral("NonFocusPanel created (%1x%2)")
            .arg(decimalText(m_config.overlay.width), decimalText(m_config.overlay.height)));
    m_panel.setTitle(QStringLiteral("Quellora"));
    PanelWindow &platform = m_collaborators.platform.panelWindow();
    const Capability exclusion = platform.excludeFromCapture(m_panel);
    logIfNotApplied(exclusion);
    m_settings.setCaptureExclusion(exclusion);
    logIfNotApplied(platform.applyPanelTraits(m_panel));
    m_placement.placeInitially();
    m_arrangement = m_memory.arrangement();
    if (const auto place = recalledPlace())
        m_placement.restore(place->frame);
}

void OverlayWindowController::setupContentView()
{
    log(QStringLiteral("Building content view (bounds: (0.0, 0.0, %1, %2))")
            .arg(decimalText(m_panel.width()), decimalText(m_panel.height())));
    const auto place = recalledPlace();
    const double alpha = place ? place->opacity : m_config.overlay.defaultOpacity;
    m_overlay.setCurrentAlpha(alpha);
    m_display.setCurrentAlpha(alpha);
    m_overlay.setAnswerTextScale(m_answerTextSize.factor());
    m_settings.attach({m_panel, m_overlay, m_panels, m_theme, m_display},
                      m_collaborators.endpoints);
    wireOverlay();
    wirePanels();
    m_panel.setContent(m_collaborators.engine,
                       {m_overlay, m_panels, m_menu, m_scrollbar, m_collaborators.responseView,
                        m_collaborators.surface.get(), m_history ? &m_history->model() : nullptr,
                        &m_settings.model(), &m_find, &m_look.model()});
    m_display.loadContent(QString());
    log(QStringLiteral("Content view built and attached (WebView + control bar + bottom panels)"));
}

void OverlayWindowController::wireOverlay()
{
    connect(&m_overlay, &OverlayModel::closeRequested, this, [this] {
        log(QStringLiteral("Close button clicked, quitting application"));
        m_collaborators.quit();
    });
    // The panel has no Dock or task bar entry to minimise to, so hide it. The toggle hot key or the
    // status item shows it again.
    connect(&m_overlay, &OverlayModel::minimizeRequested, this, [this] {
        if (m_isVisible)
            toggleVisibility();
    });
    connect(&m_overlay, &OverlayModel::zoomRequested, &m_placement,
            &PanelPlacement::handleZoomButton);
    connect(&m_stream, &StreamingRenderer::showWindowRequested, this,
            &OverlayWindowController::show);
    connect(&m_panel, &NonFocusPanel::dragBegan, &m_placement, &PanelPlacement::stopMoving);
    connect(&m_panel, &NonFocusPanel::dragFinished, &m_placement, &PanelPlacement::setUserFrame);
    connect(&m_placement, &PanelPlacement::userFrameChanged, this,
            &OverlayWindowController::rememberPlace);
    connect(&m_placement, &PanelPlacement::screensChanged, this,
            &OverlayWindowController::followScreens);
    connect(&m_collaborators.settings, &Settings::startsWhereLeftChanged, this,
            &OverlayWindowController::rememberPlace);
    connect(&m_overlay, &OverlayModel::answerTextRequested, &m_answerTextSize,
            [this](int direction) {
                m_answerTextSize.change(direction);
                showAnswerTextSize();
            });
    connect(&m_answerTextSize, &AnswerTextSize::changed, &m_overlay,
            [this] { m_overlay.setAnswerTextScale(m_answerTextSize.factor()); });
    connect(&m_overlay, &OverlayModel::announced, &m_panel, [this](const QString &text) {
        m_panel.setProperty(announcementProperty, QVariant());
        m_panel.setProperty(announcementProperty, text);
    });
    connect(&m_overlay, &OverlayModel::sliderMoved, this, &OverlayWindowController::sliderChanged);
    connect(&m_overlay, &OverlayModel::menuToggled, this,
            &OverlayWindowController::toggleHamburgerMenu);
    connect(&m_overlay, &OverlayModel::clicksToggled, this, &OverlayWindowController::toggleClicks);
    connect(&m_overlay, &OverlayModel::usageClicked, this,
            &OverlayWindowController::toggleHamburgerMenu);
    connect(&m_overlay, &OverlayModel::stopRequested, m_orchestrator.get(),
            &QueryOrchestrator::stop);
    connect(m_orchestrator.get(), &QueryOrchestrator::answerLost, this,
            [this](const QString &reason) {
                m_overlay.showNotice(QStringLiteral("Another answer failed: ") + reason);
            });
    connect(&m_display, &ResponseDisplay::previewFailed, &m_overlay, [this] {
        m_overlay.showNotice(QStringLiteral("The picture can't be opened: it can't be written to "
                                            "the temporary folder."));
    });
    connect(&m_threads, &ThreadController::screenshotRemoved, this,
            [this](const QUuid &threadId, qint64 index) {
                m_display.removePreview(threadId, index);
                if (m_display.showsScreenshot(threadId, index))
                    m_orchestrator->showCurrentThread();
            });
    connect(&m_threads, &ThreadController::noteDeletionFailed, this, [this](const QString &reason) {
        if (m_display.content() != ResponseDisplay::Content::Message)
            m_orchestrator->showCurrentThread();
        m_overlay.showNotice(QStringLiteral("The note can't be deleted: ") + reason);
    });
    connect(&m_overlay, &OverlayModel::retrySavingRequested, &m_threads,
            &ThreadController::retrySaving);
    connect(&m_overlay, &OverlayModel::backToThreadRequested, this, [this] {
        log(QStringLiteral("Back to thread clicked"));
        m_orchestrator->showCurrentThread();
    });
    connect(&m_overlay, &OverlayModel::copyAnswerRequested, this,
            &OverlayWindowController::copyAnswer);
    connect(&m_overlay, &OverlayModel::retryRequested, m_orchestrator.get(),
            &QueryOrchestrator::retry);
    connect(&m_overlay, &OverlayModel::editRequested, this,
            &OverlayWindowController::editLastQuestion);
    connect(&m_overlay, &OverlayModel::versionRequested, this,
            &OverlayWindowController::showVersionOfLastTurn);
    connect(&m_display, &ResponseDisplay::versionRequested, m_orchestrator.get(),
            &QueryOrchestrator::showVersion);
    connect(m_orchestrator.get(), &QueryOrchestrator::nothingToRetry, this,
            [this] { showNotice(QStringLiteral("There is no question to ask again.")); });
    m_find.attach(m_display);
    connect(&m_workspace, &OverlayWorkspace::failed, &m_overlay, &OverlayModel::showNotice);
    connect(&m_overlay, &OverlayModel::clickThroughRectChanged, this,
            &OverlayWindowController::updateClickThroughState);

    connect(&m_scrollbar, &ResponseScrollbarModel::scrollUp, &m_display,
            &ResponseDisplay::scrollUp);
    connect(&m_scrollbar, &ResponseScrollbarModel::scrollDown, &m_display,
            &ResponseDisplay::scrollDown);
    connect(&m_scrollbar, &ResponseScrollbarModel::scrollByPixels, &m_display,
            &ResponseDisplay::scrollByPixels);
    connect(&m_scrollbar, &ResponseScrollbarModel::thumbFractionChanged, &m_display,
            &ResponseDisplay::scrollToFraction);
    connect(&m_display, &ResponseDisplay::scrollPositionChanged, &m_scrollbar,
            &ResponseScrollbarModel::setPosition);
    connect(&m_display, &ResponseDisplay::endVisibilityChanged, &m_overlay,
            &OverlayModel::setEndVisible);
    connect(&m_overlay, &OverlayModel::latestRequested, &m_display,
            [this] { m_display.scrollToFraction(1); });
    // Pause page updates while the scrollbar or a selection in the answer is dragged, so that the
    // page does not jump under the pointer.
    const auto hold = [this] {
        m_collaborators.surface->setHeld(m_scrollbar.isDragging() || m_panel.isAnswerPressed());
    };
    connect(&m_scrollbar, &ResponseScrollbarModel::draggingChanged, this, hold);
    connect(&m_panel, &NonFocusPanel::isAnswerPressedChanged, this, hold);
    setupUndo();

    connect(&m_menu, &HamburgerMenuModel::closeRequested, this, [this] {
        if (m_overlay.isMenuOpen())
            toggleHamburgerMenu();
    });
    if (m_history) {
        m_history->attach(m_panel, m_overlay, m_menu, *m_orchestrator, m_find);
        connect(&m_history->controller(), &HistoryController::threadsDeleted, &m_display,
                &ResponseDisplay::removePreviews);
        connect(m_history.get(), &OverlayHistory::currentThreadDeleted, this,
                &OverlayWindowController::clearContent);
        // Only one sheet may be open at a time.
        connect(m_history.get(), &OverlayHistory::aboutToOpen, &m_settings,
                &OverlaySettings::close);
        connect(&m_settings, &OverlaySettings::aboutToOpen, m_history.get(),
                &OverlayHistory::close);
    }
    m_look.attach(m_panel, m_overlay, *m_orchestrator);
    m_menu.setCapturesAvailable(true);
    connect(&m_menu, &HamburgerMenuModel::captureWindowRequested, m_orchestrator.get(),
            [this] { m_orchestrator->triggerCaptureAndSend(CaptureTarget::FrontWindow); });
    connect(&m_menu, &HamburgerMenuModel::captureRegionRequested, m_orchestrator.get(),
            [this] { m_orchestrator->triggerCaptureAndSend(CaptureTarget::Region); });
    m_menu.setSettingsAvailable(true);
    connect(&m_menu, &HamburgerMenuModel::settingsRequested, &m_settings, &OverlaySettings::open);
    connect(&m_menu, &HamburgerMenuModel::accountRequested, this, [this] {
        log(QStringLiteral("Account link clicked"));
        openAccountPage();
    });
    connect(&m_menu, &HamburgerMenuModel::connectRequested, this, [this] {
        log(QStringLiteral("Connect a model clicked"));
        openAccountPage();
    });
    connect(&m_menu, &HamburgerMenuModel::upgradeRequested, this, [this] {
        log(QStringLiteral("Usage row Upgrade link clicked"));
        m_workspace.openUrl(m_collaborators.endpoints.pricing());
    });
    connect(&m_menu, &HamburgerMenuModel::signOutRequested, this,
            &OverlayWindowController::signOutClicked);
}

void OverlayWindowController::openAccountPage()
{
    m_workspace.openUrl(m_collaborators.endpoints.account());
    m_accountVisit.begin();
}

void OverlayWindowController::wirePanels()
{
    QueryOrchestrator *orchestrator = m_orchestrator.get();
    connect(&m_panels, &BottomPanelsModel::captureAndSendRequested, orchestrator,
            [orchestrator] { orchestrator->triggerCaptureAndSend(); });
    connect(&m_panels, &BottomPanelsModel::captureNoSendRequested, orchestrator,
            [orchestrator] { orchestrator->captureNoSend(); });
    connect(&m_panels, &BottomPanelsModel::sendRequested, orchestrator,
            &QueryOrchestrator::sendPromptOnly);
    connect(&m_panels, &BottomPanelsModel::noteRequested, orchestrator,
            &QueryOrchestrator::addNote);
    connect(orchestrator, &QueryOrchestrator::captureSucceeded, this,
            [this] { m_collaborators.settings.setHasLaunchedBefore(true); });
    // Hot keys also work while the panel is hidden; show it so that the user sees the reason.
    connect(orchestrator, &QueryOrchestrator::refused, this, [this] {
        if (!m_isVisible)
            show();
    });
    connect(orchestrator, &QueryOrchestrator::answerEnded, &m_notice, &AnswerNotice::answerEnded);
    connect(&m_notice, &AnswerNotice::showRequested, this, [this] {
        log(QStringLiteral("Notification clicked"));
        show();
    });
    connect(&m_panels, &BottomPanelsModel::newThreadRequested, this,
            &OverlayWindowController::startNewThread);
    connect(&m_panels, &BottomPanelsModel::pictureOffered, this,
            &OverlayWindowController::attachPicture);
    connect(&m_panels, &BottomPanelsModel::pictureRefused, &m_overlay, &OverlayModel::showNotice);
    connect(&m_panels, &BottomPanelsModel::editCancelled, &orchestrator->lastQuestion(),
            &LastQuestion::cancelEditing);
    connect(&m_panels, &BottomPanelsModel::attachmentRemoved, &m_threads,
            &ThreadController::removeStagedScreenshot);
    connect(&m_panels, &BottomPanelsModel::informationalCollapseToggled, &m_messages,
            &ServiceMessages::toggleInformationalCollapse);
    connect(&m_panels, &BottomPanelsModel::messageActionRequested, this,
            [this](const QUrl &url) { m_workspace.openUrl(url); });
}

void OverlayWindowController::show()
{
    m_placement.keepOnScreen();
    logIfNotApplied(m_collaborators.platform.panelWindow().orderFront(m_panel));
    m_isVisible = true;
    m_notice.panelShown();
    updateClickThroughState();
    log(QStringLiteral("Window shown"));
}

void OverlayWindowController::toggleVisibility()
{
    log(QStringLiteral("Toggling visibility (currently %1)")
            .arg(m_isVisible ? QStringLiteral("visible") : QStringLiteral("hidden")));
    if (!m_isVisible) {
        show();
        return;
    }
    m_overlay.setTakesClicks(false);
    m_panel.hide();
    m_isVisible = false;
    m_reader.hush();
    log(QStringLiteral("Window hidden"));
}

void OverlayWindowController::closeWindow()
{
    m_orchestrator->cancelAll();
    m_removals.commitAll();
    m_isVisible = false;
    m_panel.close();
}

void OverlayWindowController::finishAtOnce()
{
    m_orchestrator->cancelAll();
    m_removals.commitAll();
    m_display.removeAllPreviews();
}

void OverlayWindowController::clearContent()
{
    log(QStringLiteral("Content cleared"));
    m_orchestrator->leavePage();
    m_display.loadContent(QString());
    m_overlay.setHasAnswer(false);
    m_overlay.setQuestionKnown(false);
    m_overlay.setVersions(0, 1);
}

void OverlayWindowController::startNewThread()
{
    m_threads.startNewThread();
    clearContent();
    log(QStringLiteral("New thread started"));
}

void OverlayWindowController::toggleClicks()
{
    if (!m_isVisible)
        show();
    m_overlay.setTakesClicks(!m_overlay.takesClicks());
    log(m_overlay.takesClicks() ? QStringLiteral("Clicks go to the answer")
                                : QStringLiteral("Clicks go through the answer"));
}

void OverlayWindowController::adjustOpacity(double delta)
{
    applyOpacity(std::clamp(m_overlay.currentAlpha() + delta, 0.0, 1.0));
    log(QStringLiteral("Opacity adjusted by %1%2 -> %3")
            .arg(delta > 0 ? QStringLiteral("+") : QString(), decimalText(delta),
                 QString::number(m_overlay.currentAlpha(), 'f', 2)));
}

void OverlayWindowController::sliderChanged(double value)
{
    applyOpacity(value);
    log(QStringLiteral("Opacity set via slider: ") + decimalText(value));
}

void OverlayWindowController::applyOpacity(double alpha)
{
    m_overlay.setCurrentAlpha(alpha);
    m_display.setCurrentAlpha(alpha);
    m_display.pushPillAlphaLiveThrottled();
    rememberPlace();
}

std::optional<PanelMemory::Place> OverlayWindowController::recalledPlace() const
{
    return m_collaborators.settings.startsWhereLeft() ? m_memory.recall() : std::nullopt;
}

void OverlayWindowController::rememberPlace()
{
    if (m_collaborators.settings.startsWhereLeft())
        m_memory.remember({m_placement.requestedFrame(), m_overlay.currentAlpha()});
}

void OverlayWindowController::followScreens()
{
    const QString arrangement = m_memory.arrangement();
    if (std::exchange(m_arrangement, arrangement) == arrangement)
        return;
    const auto place = recalledPlace();
    if (!place)
        return;
    m_placement.restore(place->frame);
    applyOpacity(place->opacity);
}

void OverlayWindowController::showAnswerTextSize()
{
    m_overlay.showNotice(QStringLiteral("Answer text %1%").arg(m_answerTextSize.percent()));
}

void OverlayWindowController::setupExport()
{
    m_export = std::make_unique<OverlayExport>(OverlayExport::Collaborators{
        m_threads, m_collaborators.library, m_menu, m_overlay, *m_collaborators.fileChooser,
        [this](bool isOpen) { makeRoomForDialog(isOpen); }});
    if (!m_history)
        return;
    connect(&m_history->model(), &HistoryModel::exportRequested, m_export.get(),
            &OverlayExport::showFor);
    // The outcome is shown in the strip.
    connect(m_export.get(), &OverlayExport::chosen, m_history.get(), &OverlayHistory::close);
}

void OverlayWindowController::makeRoomForDialog(bool isOpen)
{
    if (isOpen && m_isVisible && m_collaborators.platform.panelWindow().coversDialogs()) {
        m_isHiddenForDialog = true;
        toggleVisibility();
    } else if (!isOpen && std::exchange(m_isHiddenForDialog, false) && !m_isVisible) {
        show();
    }
}

void OverlayWindowController::setupMemoryReturn()
{
    m_memoryReturn.setObjectName(QStringLiteral("memoryReturnTimer"));
    m_memoryReturn.setParent(this);
    m_memoryReturn.setSingleShot(true);
    m_memoryReturn.setInterval(memoryReturnDelay);
    connect(&m_memoryReturn, &QTimer::timeout, this, &giveBackFreedPages);
    // Not started again by pages that follow, so that the delay is also the least interval.
    connect(&m_display, &ResponseDisplay::pageFinished, this, [this] {
        if (!m_memoryReturn.isActive())
            m_memoryReturn.start();
    });
}

void OverlayWindowController::toggleHamburgerMenu()
{
    if (!m_overlay.isMenuOpen())
        m_menu.showMain();
    m_overlay.setMenuOpen(!m_overlay.isMenuOpen());
    log(QStringLiteral("Hamburger button clicked — menu open=%1")
            .arg(m_overlay.isMenuOpen() ? QStringLiteral("true") : QStringLiteral("false")));
}

void OverlayWindowController::signOutClicked()
{
    log(QStringLiteral("Sign Out clicked"));
    m_collaborators.session.logout();
    // The delegate closes the panel in response.
    Q_EMIT m_collaborators.notifications.sessionExpired();
}

void OverlayWindowController::showNotice(const QString &text)
{
    show();
    m_overlay.showNotice(text);
}

void OverlayWindowController::applyConfigAtStart(const AppConfigResponse &config)
{
    m_configuration->applyConfigAtStart(config);
}

void OverlayWindowController::updateClickThroughState()
{
    if (m_isVisible)
        m_collaborators.platform.panelWindow().setClickThrough(m_panel,
                                                               m_overlay.clickThroughRect());
}

void OverlayWindowController::editLastQuestion()
{
    log(QStringLiteral("Edit question clicked"));
    m_orchestrator->editLastQuestion();
    m_panels.focusPrompt();
    m_panel.makeKey();
}

void OverlayWindowController::setupUndo()
{
    connect(&m_display, &ResponseDisplay::noteDeleteRequested, this,
            &OverlayWindowController::deleteNote);
    connect(&m_removals, &PendingRemovals::changed, &m_overlay,
            [this] { m_overlay.setUndoText(m_removals.text()); });
    connect(&m_removals, &PendingRemovals::added, &m_reader, &AnswerReader::readRemoval);
    connect(&m_overlay, &OverlayModel::undoRequested, this, [this] {
        log(QStringLiteral("Undo clicked"));
        m_removals.undo();
    });
}

void OverlayWindowController::deleteNote(const QUuid &noteId)
{
    if (!m_threads.setNoteAside(noteId))
        return;
    m_orchestrator->showCurrentThread();
    m_removals.add({QStringLiteral("Deleted a note"),
                    [this, noteId] { m_threads.removeNote(noteId); },
                    [this, noteId] {
                        if (m_threads.restoreNote(noteId) &&
                            m_display.content() != ResponseDisplay::Content::Message)
                            m_orchestrator->showCurrentThread();
                    }});
}

void OverlayWindowController::attachPicture(const OfferedPicture &picture)
{
    log(QStringLiteral("Picture pasted or dropped"));
    whenFinished(PictureImport::importInBackground(picture), this,
                 [this](const PictureImport::Outcome &outcome) {
                     if (outcome) {
                         m_threads.stageScreenshot(*outcome);
                         return;
                     }
                     log(QStringLiteral("ERROR: Picture not attached: ") + outcome.error());
                     m_overlay.showNotice(outcome.error());
                 });
}

void OverlayWindowController::showVersionOfLastTurn(int position)
{
    const auto &session = m_threads.currentSession();
    if (session && !session->turns.isEmpty())
        m_orchestrator->showVersion(session->turns.constLast().id, position);
}

void OverlayWindowController::copyAnswer()
{
    const auto &session = m_threads.currentSession();
    if (session && !session->turns.isEmpty())
        QGuiApplication::clipboard()->setText(session->turns.constLast().response);
}

} // namespace quellora
