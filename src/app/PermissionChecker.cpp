#include "app/PermissionChecker.h"

#include "app/Log.h"

namespace quellora {

namespace {

QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

PermissionChecker::PermissionChecker(Permissions &permissions, QObject *parent)
    : QObject(parent), m_permissions(permissions)
{}

void PermissionChecker::checkAccessibility()
{
    const bool trusted = m_permissions.isAccessibilityTrusted();
    Log::event(QStringLiteral("[PermissionChecker] Accessibility permission trusted: ") +
               boolText(trusted));
    if (!trusted) {
        addProblem(QStringLiteral(
            "**Accessibility permission not granted.** Global hotkeys may not work reliably. Grant "
            "it in System Settings → Privacy & Security → Accessibility → enable Quellora, then "
            "relaunch the app."));
    }
}

void PermissionChecker::checkScreenRecording()
{
    const bool granted = m_permissions.isScreenRecordingGranted();
    Log::event(QStringLiteral("[PermissionChecker] Screen Recording permission granted: ") +
               boolText(granted));
    if (granted)
        return;
    m_permissions.requestScreenRecording();
    addProblem(QStringLiteral(
        "**Screen Recording permission not granted.** Captures will be blank or fail silently. "
        "Grant it in System Settings → Privacy & Security → Screen Recording → enable Quellora, "
        "then relaunch the app."));
}

void PermissionChecker::addProblem(const QString &line)
{
    m_problemLines.append(line);
    AdminMessagePayload message;
    message.id = QLatin1String(messageId);
    message.type = QStringLiteral("INFORMATIONAL");
    message.headerText = m_problemLines.size() == 1 ? QStringLiteral("Startup issue")
                                                    : QStringLiteral("Startup issues");
    message.bodyMarkdown = m_problemLines.join(QStringLiteral("\n\n"));
    m_pending = message;
}

} // namespace quellora
