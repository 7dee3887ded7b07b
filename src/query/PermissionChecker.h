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
    /// @param words in which the user is told what to do
    PermissionChecker(Permissions &permissions, Vocabulary words, QObject *parent = nullptr);
    ~PermissionChecker() override;

    /// Id of the message, the same however long it grows.
    static constexpr auto messageId = "startup-permission-issues";

    void checkAccessibility();
    /// Requests access when it is missing.
    void checkScreenRecording();
    /// Puts down what is wrong with one subject, as a Markdown line, in place of what was said
    /// about it before; an empty line says that it is solved. Rebuilds pendingAdminMessage().
    void setProblem(const QString &subject, const QString &line);
    /// Asks again for what was missing. The line of a permission that is granted by now goes; lines
    /// of other problems stay. Happens by itself when the system reports a change.
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

    bool has(const QString &subject) const;
    void rebuild();

    Permissions &m_permissions;
    Vocabulary m_words;
    /// In order of discovery, one for each subject.
    QList<Problem> m_problems;
    std::optional<AdminMessagePayload> m_pending;
};

} // namespace quellora
