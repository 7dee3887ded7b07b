#pragma once

#include "backend/Records.h"
#include "platform/Platform.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <optional>

namespace quellora {

/// Asks for the two privacy permissions at start-up and collects a user-facing line for every
/// problem found there (hot keys add theirs) into one informational message. Main thread only.
class PermissionChecker : public QObject
{
    Q_OBJECT
public:
    explicit PermissionChecker(Permissions &permissions, QObject *parent = nullptr);
    ~PermissionChecker() override;

    /// Id of the message, the same however long it grows.
    static constexpr auto messageId = "startup-permission-issues";

    void checkAccessibility();
    /// Requests access when it is missing.
    void checkScreenRecording();
    /// Appends one Markdown line and rebuilds pendingAdminMessage().
    void addProblem(const QString &line);
    /// Asks again for what was missing. The line of a permission that is granted by now goes; lines
    /// of other problems stay. Happens by itself when the system reports a change.
    void retest();

    const std::optional<AdminMessagePayload> &pendingAdminMessage() const { return m_pending; }
    QStringList problemLines() const;

Q_SIGNALS:
    void pendingAdminMessageChanged();

private:
    enum class Kind { Accessibility, ScreenRecording, Other };
    struct Problem
    {
        Kind kind;
        QString line;
    };

    void add(Kind kind, const QString &line);
    /// Drops the line of this kind; true when there was one.
    bool drop(Kind kind);
    void rebuild();

    Permissions &m_permissions;
    /// In order of discovery.
    QList<Problem> m_problems;
    std::optional<AdminMessagePayload> m_pending;
};

} // namespace quellora
