#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>

namespace quellora {

/// What the user has removed and can still bring back. Each removal has its own deadline; undo()
/// takes back the latest one, then the one before. Nothing is lost before a removal is committed.
/// Main thread only.
///
/// Deadlines follow a clock that runs steadily, so setting the system's time changes none of them.
class PendingRemovals : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    struct Removal
    {
        /// What was removed, for the user: "Deleted a note".
        QString text;
        /// Removes it for good.
        std::function<void()> commit;
        /// Brings it back.
        std::function<void()> undo;
    };

    /// How long a removal can be undone.
    static constexpr std::chrono::seconds undoTime{10};

    explicit PendingRemovals(Clock clock = &std::chrono::steady_clock::now,
                             QObject *parent = nullptr);

    void add(Removal removal);
    bool isEmpty() const { return m_pending.isEmpty(); }
    /// The text of the removal that undo() takes back; empty if there is none.
    QString text() const;
    /// Takes the latest removal back. No effect if there is none.
    void undo();
    /// Commits what has reached its deadline; called by the object's own timer.
    void commitDue();
    /// Commits everything at once, oldest first, because nobody can take it back any more.
    void commitAll();

Q_SIGNALS:
    /// A removal was added, taken back or committed.
    void changed();
    /// A removal with this text was added.
    void added(const QString &text);

private:
    struct Pending
    {
        Removal removal;
        std::chrono::steady_clock::time_point deadline;
    };

    void scheduleCommit();

    Clock m_clock;
    /// Oldest first.
    QList<Pending> m_pending;
    QTimer m_timer;
};

} // namespace quellora
