#pragma once

#include "backend/Records.h"
#include "platform/Platform.h"

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

    /// Id of the message, the same however long it grows.
    static constexpr auto messageId = "startup-permission-issues";

    void checkAccessibility();
    /// Requests access when it is missing.
    void checkScreenRecording();
    /// Appends one Markdown line and rebuilds pendingAdminMessage().
    void addProblem(const QString &line);

    const std::optional<AdminMessagePayload> &pendingAdminMessage() const { return m_pending; }
    const QStringList &problemLines() const { return m_problemLines; }

private:
    Permissions &m_permissions;
    QStringList m_problemLines;
    std::optional<AdminMessagePayload> m_pending;
};

} // namespace quellora
