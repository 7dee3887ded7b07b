#include "query/PermissionChecker.h"

#include "base/Log.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

void logStatus(const char *check, bool granted)
{
    Log::event(QStringLiteral("[PermissionChecker] ") + QLatin1String(check) +
               QStringLiteral(": ") + (granted ? QStringLiteral("true") : QStringLiteral("false")));
}

constexpr auto accessibilityTrusted = "Accessibility permission trusted";
constexpr auto screenRecordingGranted = "Screen Recording permission granted";

const QString accessibility = QStringLiteral("accessibility");
const QString screenRecording = QStringLiteral("screen-recording");

} // namespace

PermissionChecker::PermissionChecker(Permissions &permissions, Vocabulary vocabulary,
                                     ScreenSource *screen, QObject *parent)
    : QObject(parent)
    , m_permissions(permissions)
    , m_vocabulary(std::move(vocabulary))
    , m_screen(screen)
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
    logStatus(accessibilityTrusted, trusted);
    m_isAccessibilityMissing = !trusted;
    if (!trusted && !m_vocabulary.accessibilityAdvice.isEmpty()) {
        setProblem(accessibility, QStringLiteral("**Accessibility permission not granted.** Global "
                                                 "hotkeys may not work reliably. ") +
                                      m_vocabulary.accessibilityAdvice);
    }
}

void PermissionChecker::checkScreenRecording()
{
    if (m_screen)
        return checkScreenAccess();
    const bool granted = m_permissions.isScreenRecordingGranted();
    logStatus(screenRecordingGranted, granted);
    if (granted)
        return;
    m_permissions.requestScreenRecording();
    setProblem(screenRecording, QStringLiteral("**Screen Recording permission not granted.** "
                                               "Captures will be blank or fail silently. ") +
                                    m_vocabulary.screenRecordingAdvice);
}

void PermissionChecker::checkScreenAccess()
{
    const ScreenSource::Access access = m_screen->access();
    if (access == m_screenAccess)
        return;
    m_screenAccess = access;
    switch (access) {
    case ScreenSource::Access::Unknown:
    case ScreenSource::Access::NotAsked:
        // Not a problem yet: the desktop asks before the first picture.
        setProblem(screenRecording, {});
        break;
    case ScreenSource::Access::Granted:
        logStatus(screenRecordingGranted, true);
        setProblem(screenRecording, {});
        break;
    case ScreenSource::Access::Refused:
    case ScreenSource::Access::Unavailable:
        logStatus(screenRecordingGranted, false);
        setProblem(screenRecording,
                   QStringLiteral("**Quellora cannot take pictures of the screen.** ") +
                       m_screen->advice());
        break;
    }
}

void PermissionChecker::setProblem(const QString &subject, const QString &line)
{
    const auto existing =
        std::find_if(m_problems.begin(), m_problems.end(),
                     [&subject](const Problem &problem) { return problem.subject == subject; });
    const bool exists = existing != m_problems.end();
    if (exists ? existing->line == line : line.isEmpty())
        return;
    if (!exists)
        m_problems.append({subject, line});
    else if (line.isEmpty())
        m_problems.erase(existing);
    else
        existing->line = line;
    rebuild();
}

void PermissionChecker::retest()
{
    if (m_isAccessibilityMissing && m_permissions.isAccessibilityTrusted()) {
        m_isAccessibilityMissing = false;
        logStatus(accessibilityTrusted, true);
        setProblem(accessibility, {});
    }
    if (m_screen)
        checkScreenAccess();
    else if (has(screenRecording) && m_permissions.isScreenRecordingGranted()) {
        logStatus(screenRecordingGranted, true);
        setProblem(screenRecording, {});
    }
}

QStringList PermissionChecker::problemLines() const
{
    QStringList lines;
    for (const Problem &problem : m_problems)
        lines << problem.line;
    return lines;
}

bool PermissionChecker::has(const QString &subject) const
{
    return std::any_of(m_problems.begin(), m_problems.end(),
                       [&subject](const Problem &problem) { return problem.subject == subject; });
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
