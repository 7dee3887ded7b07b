#include "app/PermissionChecker.h"

#include "app/Log.h"

namespace quellora {

namespace {

void logAnswer(const char *question, bool answer)
{
    Log::event(QStringLiteral("[PermissionChecker] ") + QLatin1String(question) +
               QStringLiteral(": ") + (answer ? QStringLiteral("true") : QStringLiteral("false")));
}

constexpr auto accessibilityTrusted = "Accessibility permission trusted";
constexpr auto screenRecordingGranted = "Screen Recording permission granted";

} // namespace

PermissionChecker::PermissionChecker(Permissions &permissions, QObject *parent)
    : QObject(parent), m_permissions(permissions)
{
    m_permissions.onChanged([this] { retest(); });
}

PermissionChecker::~PermissionChecker()
{
    m_permissions.onChanged({});
}

void PermissionChecker::checkAccessibility()
{
    const bool trusted = m_permissions.isAccessibilityTrusted();
    logAnswer(accessibilityTrusted, trusted);
    if (!trusted) {
        add(Kind::Accessibility, QStringLiteral("**Accessibility permission not granted.** Global "
                                                "hotkeys may not work reliably. Grant "
                                                "it in System Settings → Privacy & Security → "
                                                "Accessibility → enable Quellora, then "
                                                "relaunch the app."));
    }
}

void PermissionChecker::checkScreenRecording()
{
    const bool granted = m_permissions.isScreenRecordingGranted();
    logAnswer(screenRecordingGranted, granted);
    if (granted)
        return;
    m_permissions.requestScreenRecording();
    add(Kind::ScreenRecording,
        QStringLiteral(
            "**Screen Recording permission not granted.** Captures will be blank or fail silently. "
            "Grant it in System Settings → Privacy & Security → Screen Recording → enable "
            "Quellora, "
            "then relaunch the app."));
}

void PermissionChecker::addProblem(const QString &line)
{
    add(Kind::Other, line);
}

void PermissionChecker::retest()
{
    bool changed = false;
    if (m_permissions.isAccessibilityTrusted() && drop(Kind::Accessibility)) {
        logAnswer(accessibilityTrusted, true);
        changed = true;
    }
    if (m_permissions.isScreenRecordingGranted() && drop(Kind::ScreenRecording)) {
        logAnswer(screenRecordingGranted, true);
        changed = true;
    }
    if (changed)
        rebuild();
}

QStringList PermissionChecker::problemLines() const
{
    QStringList lines;
    for (const Problem &problem : m_problems)
        lines << problem.line;
    return lines;
}

void PermissionChecker::add(Kind kind, const QString &line)
{
    m_problems.append({kind, line});
    rebuild();
}

bool PermissionChecker::drop(Kind kind)
{
    return m_problems.removeIf([kind](const Problem &problem) { return problem.kind == kind; }) > 0;
}

void PermissionChecker::rebuild()
{
    if (m_problems.isEmpty()) {
        m_pending.reset();
    } else {
        AdminMessagePayload message;
        message.id = QLatin1String(messageId);
        message.type = QStringLiteral("INFORMATIONAL");
        message.headerText = m_problems.size() == 1 ? QStringLiteral("Startup issue")
                                                    : QStringLiteral("Startup issues");
        message.bodyMarkdown = problemLines().join(QStringLiteral("\n\n"));
        m_pending = message;
    }
    Q_EMIT pendingAdminMessageChanged();
}

} // namespace quellora
