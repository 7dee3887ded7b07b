#pragma once

#include "history/CaptureSession.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace quellora {

class Settings;
class ThreadController;

/// A question as it was asked, to be asked again.
struct AskedQuestion
{
    QUuid threadId;
    QString prompt;
    std::optional<CaptureSession::Screenshot> screenshot;
    /// The turn that it became or was to replace; null if there is none.
    QUuid turnId;

    bool operator==(const AskedQuestion &) const = default;
};

/// The last question of the current thread, which can be asked again: the one that got no answer
/// or, without one, that of the last turn, as the version on show has it. Also lets the user edit
/// it in the prompt box; what the box held comes back afterwards. Main thread only.
class LastQuestion : public QObject
{
    Q_OBJECT
public:
    /// The references must outlive this object.
    LastQuestion(ThreadController &threads, Settings &settings, QObject *parent = nullptr);

    /// nullopt if nothing has been asked in the current thread.
    std::optional<AskedQuestion> question() const;
    /// Remembers a question that got no answer, until forget() is called for its thread. It is not
    /// stored.
    void setUnanswered(const AskedQuestion &question);
    void forget(const QUuid &threadId);
    /// Whether the last question of the current thread got no answer.
    bool isUnanswered() const;

    /// Puts the last question into the prompt box; no effect without one.
    void beginEditing();
    bool isEditing() const { return m_edited.has_value(); }
    /// Gives the edited question up; the prompt box gets back what it held before.
    void cancelEditing();
    /// Ends the editing because the question is asked again; returns the question as it was before
    /// it was edited. nullopt if none is edited.
    std::optional<AskedQuestion> takeEdited();
    /// Ends the editing because its thread is no longer there to ask in; the prompt box keeps what
    /// was written, below what it held before.
    void abandonEditing();

Q_SIGNALS:
    /// isEditing() may have changed, or question() otherwise than with the current thread.
    void changed();

private:
    void endEditing(const QString &promptBox);

    ThreadController &m_threads;
    Settings &m_settings;
    /// By thread.
    QHash<QUuid, AskedQuestion> m_unanswered;
    std::optional<AskedQuestion> m_edited;
    /// What the prompt box held before.
    QString m_draft;
};

} // namespace quellora
