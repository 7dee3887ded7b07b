#include "query/PermissionChecker.h"

#include "base/Log.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

void logAnswer(const char *question, bool answer)
{
    Log::event(QStringLiteral("[PermissionChecker] ") + QLatin1String(question) +
               QStringLiteral(": ") + (answer ? QStringLiteral("true") : QStringLiteral("false")));
}

constexpr auto accessibilityTrusted = "Accessibility permission trusted";
constexpr auto screenRecordingGranted = "Screen Recording permission granted";

const QString accessibility = QStringLiteral("accessibility");
const QString screenRecording = QStringLiteral("screen-recording");

} // namespace

PermissionChecker::PermissionChecker(Permissions &permissions, Vocabulary words, QObject *parent)
    : QObject(parent), m_permissions(permissions), m_words(std::move(words))
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
        setProblem(accessibility, QStringLiteral("**Accessibility permission not granted.** Global "
                                                 "hotkeys may not work reliably. ") +
                                      m_words.accessibilityAdvice);
    }
}

void PermissionChecker::checkScreenRecording()
{
    const bool granted = m_permissions.isScreenRecordingGranted();
    logAnswer(screenRecordingGranted, granted);
    if (granted)
        return;
    m_permissions.requestScreenRecording();
    setProblem(screenRecording, QStringLiteral("**Screen Recording permission not granted.** "
                                               "Captures will be blank or fail silently. ") +
                                    m_words.screenRecordingAdvice);
}

void PermissionChecker::setProblem(const QString &subject, const QString &line)
{
    const auto known =
        std::find_if(m_problems.begin(), m_problems.end(),
                     [&subject](const Problem &problem) { return problem.subject == subject; });
    const bool isKnown = known != m_problems.end();
    if (isKnown ? known->line == line : line.isEmpty())
        return;
    if (!isKnown)
        m_problems.append({subject, line});
    else if (line.isEmpty())
        m_problems.erase(known);
    else
        known->line = line;
    rebuild();
}

void PermissionChecker::retest()
{
    if (has(accessibility) && m_permissions.isAccessibilityTrusted()) {
        logAnswer(accessibilityTrusted, true);
        setProblem(accessibility, {});
    }
    if (has(screenRecording) && m_permissions.isScreenRecordingGranted()) {
        logAnswer(screenRecordingGranted, true);
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
