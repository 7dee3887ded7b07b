#include "app/MenuBarController.h"

#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Log.h"
#include "base/WhenFinished.h"
#include "platform/Platform.h"

#include <utility>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[MenuBarController] ") + message);
}

} // namespace

MenuBarController::MenuBarController(StatusBar &statusBar, SessionManager &session,
                                     NotificationCenter &notifications, Workspace &workspace,
                                     QUrl accountURL, std::function<void()> quit)
    : m_session(session)
    , m_notifications(notifications)
    , m_workspace(workspace)
    , m_accountURL(std::move(accountURL))
    , m_quit(std::move(quit))
{
    log(QStringLiteral("init"));
    build(statusBar);
}

void MenuBarController::build(StatusBar &statusBar)
{
    m_statusItem = statusBar.makeItem();
    const bool hasButton = m_statusItem->hasButton();
    // Set it even without a button: a tray that appears later shows it.
    const bool hasImage =
        m_statusItem->setSymbol(QStringLiteral("gear"), QStringLiteral("Quellora"));
    if (hasButton) {
        log(QStringLiteral("statusItem.button exists"));
        if (hasImage) {
            log(QStringLiteral("NSImage(systemSymbolName: \"gear\") created successfully"));
        } else {
            log(QStringLiteral("ERROR: NSImage(systemSymbolName: \"gear\") returned nil — symbol "
                               "lookup failed"));
        }
    } else {
        log(QStringLiteral("ERROR: statusItem.button is nil — cannot assign an image"));
    }
    m_statusItem->setAction([this] { showOverlayClicked(); });
    m_statusItem->setMenu({
        {QStringLiteral("Show Quellora"), [this] { showOverlayClicked(); }},
        {},
        {QStringLiteral("Manage Account"), [this] { manageAccountClicked(); }},
        {QStringLiteral("Usage"), {}},
        {QStringLiteral("Settings"), {}},
        {},
        {QStringLiteral("Sign Out"), [this] { signOutClicked(); }},
        {QStringLiteral("Quit"), [this] { quitClicked(); }},
    });
    log(QStringLiteral("Status item and menu built (Show Quellora, Manage Account, Usage "
                       "[disabled], Settings [disabled], Sign Out, Quit)"));
}

void MenuBarController::showOverlayClicked()
{
    log(QStringLiteral("Show Quellora clicked"));
    if (onShowOverlay)
        onShowOverlay();
}

void MenuBarController::manageAccountClicked()
{
    log(QStringLiteral("Manage Account clicked, opening ") + m_accountURL.toString());
    whenFinished(m_workspace.openUrl(m_accountURL), this, [this](const OpenResult &result) {
        if (!result && onOpenFailed)
            onOpenFailed(result.error().text());
    });
}

void MenuBarController::signOutClicked()
{
    log(QStringLiteral("Sign Out clicked"));
    m_session.logout();
    Q_EMIT m_notifications.sessionExpired();
}

void MenuBarController::quitClicked()
{
    log(QStringLiteral("Quit clicked, terminating application"));
    m_quit();
}

} // namespace quellora
