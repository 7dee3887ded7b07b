#pragma once

#include "backend/Records.h"
#include "platform/Platform.h"
#include "platform/ScreenSource.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <optional>

namespace quellora {

/// Checks the accessibility and screen recording permissions at start-up and combines all start-up
/// problems, including those of hot keys, into one informational message. Main thread only.
class PermissionChecker : public QObject
{
    Q_OBJECT
public:
    /// @param vocabulary platform-specific advice for the user
    /// @param screen decides about the screen recording permission where pictures are taken through
    ///        it; else null
    PermissionChecker(Permissions &permissions, Vocabulary vocabulary,
                      ScreenSource *screen = nullptr, QObject *parent = nullptr);
    ~PermissionChecker() override;

    /// Id of the message, independent of its content.
    static constexpr auto messageId = "startup-permission-issues";

    /// Adds a problem if the accessibility permission is missing and can be granted.
    void checkAccessibility();
    /// Requests the screen recording permission and adds a problem if it is missing.
    void checkScreenRecording();
    /// Sets the problem of @p subject to a Markdown line, replacing the previous one; an empty line
    /// clears it. Rebuilds pendingAdminMessage() if anything changed.
    void setProblem(const QString &subject, const QString &line);
    /// Rechecks missing permissions and clears the problems of those granted since. Called
    /// automatically when the system reports a change.
    void retest();

    const std::optional<AdminMessagePayload> &pendingAdminMessage() const { return m_pending; }
    QStringList problemLines() const;

Q_SIGNALS:
    void pendingAdminMessageChanged();

private:
    struct Problem
    {
        QString subject;
        QString line;
    };

    void checkScreenAccess();
    bool has(const QString &subject) const;
    void rebuild();

    Permissions &m_permissions;
    Vocabulary m_vocabulary;
    ScreenSource *m_screen;
    ScreenSource::Access m_screenAccess = ScreenSource::Access::Unknown;
    /// In order of discovery; at most one per subject.
    QList<Problem> m_problems;
    std::optional<AdminMessagePayload> m_pending;
    bool m_isAccessibilityMissing = false;
};

} // namespace quellora
