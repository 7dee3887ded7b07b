#include "history/ListedThreads.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace quellora {

qsizetype ListedThreads::positionOf(const QUuid &id) const
{
    const auto it = std::find_if(m_threads.begin(), m_threads.end(),
                                 [&id](const ThreadSummary &thread) { return thread.id == id; });
    return it == m_threads.end() ? -1 : std::distance(m_threads.begin(), it);
}

void ListedThreads::beginReading()
{
    abandonReading();
    m_removed.clear();
    m_titles.clear();
    m_stale.reserve(m_threads.size());
    for (const ThreadSummary &thread : std::as_const(m_threads))
        m_stale.insert(thread.id, thread.updatedAt);
}

void ListedThreads::add(const QList<ThreadSummary> &threads)
{
    m_incoming.append(threads);
}

void ListedThreads::endReading()
{
    m_isComplete = true;
}

void ListedThreads::abandonReading()
{
    m_incoming.clear();
    m_next = 0;
    m_isComplete = false;
    m_sweepEnd = std::numeric_limits<qsizetype>::max();
    m_stale.clear();
}

void ListedThreads::clear()
{
    abandonReading();
    m_threads.clear();
}

std::optional<ListedThreads::Change> ListedThreads::applyNext()
{
    if (auto change = applyIncoming())
        return change;
    return m_isComplete ? removeStale() : std::nullopt;
}

/// The thread as read from disk, with a title that the user has set since.
ThreadSummary ListedThreads::incoming(qsizetype at) const
{
    ThreadSummary thread = m_incoming.at(at);
    if (const auto title = m_titles.constFind(thread.id); title != m_titles.constEnd())
        thread.customTitle = *title;
    return thread;
}

qsizetype ListedThreads::lowerBound(const ThreadSummary &thread) const
{
    return std::distance(m_threads.begin(),
                         std::lower_bound(m_threads.begin(), m_threads.end(), thread, isNewer));
}

std::optional<ListedThreads::Change> ListedThreads::applyIncoming()
{
    while (m_next < m_incoming.size()) {
        const QUuid id = m_incoming.at(m_next).id;
        if (isLeftOut(id)) {
            ++m_next;
            continue;
        }
        const auto change = m_stale.contains(id) ? updateKnown(incoming(m_next)) : insertRun();
        if (change)
            return change;
    }
    m_incoming.clear();
    m_next = 0;
    return std::nullopt;
}

std::optional<ListedThreads::Change> ListedThreads::updateKnown(ThreadSummary thread)
{
    ThreadSummary key;
    key.id = thread.id;
    key.updatedAt = m_stale.take(thread.id);
    const qsizetype position = lowerBound(key);
    if (key.updatedAt != thread.updatedAt) {
        // The next call inserts it at its new position.
        m_threads.removeAt(position);
        return Change{Change::Kind::Removed, position, 1};
    }
    ++m_next;
    if (m_threads.at(position) == thread)
        return std::nullopt;
    m_threads[position] = std::move(thread);
    return Change{Change::Kind::Changed, position, 1};
}

std::optional<ListedThreads::Change> ListedThreads::insertRun()
{
    QList<ThreadSummary> run{incoming(m_next)};
    const qsizetype position = lowerBound(run.constFirst());
    const bool isAtEnd = position == m_threads.size();
    // Folders whose names differ only in case are the same thread.
    if (!isAtEnd && m_threads.at(position).id == run.constFirst().id) {
        ++m_next;
        return std::nullopt;
    }
    for (++m_next; m_next < m_incoming.size(); ++m_next) {
        const ThreadSummary &thread = m_incoming.at(m_next);
        const bool belongs = isNewer(run.constLast(), thread) &&
                             (isAtEnd || isNewer(thread, m_threads.at(position)));
        if (!belongs || m_stale.contains(thread.id) || isLeftOut(thread.id))
            break;
        run.append(incoming(m_next));
    }
    const qsizetype count = run.size();
    if (isAtEnd) {
        m_threads.append(std::move(run));
    } else {
        m_threads.insert(position, count, ThreadSummary());
        std::move(run.begin(), run.end(), m_threads.begin() + position);
    }
    return Change{Change::Kind::Inserted, position, count};
}

std::optional<ListedThreads::Change> ListedThreads::removeStale()
{
    const auto isStale = [this](qsizetype at) { return m_stale.contains(m_threads.at(at).id); };
    m_sweepEnd = std::min(m_sweepEnd, m_threads.size());
    // From the end, so that removals do not shift the positions still to be checked.
    while (m_sweepEnd > 0 && !m_stale.isEmpty()) {
        const qsizetype end = m_sweepEnd;
        while (m_sweepEnd > 0 && isStale(m_sweepEnd - 1))
            m_stale.remove(m_threads.at(--m_sweepEnd).id);
        if (m_sweepEnd < end) {
            m_threads.remove(m_sweepEnd, end - m_sweepEnd);
            return Change{Change::Kind::Removed, m_sweepEnd, end - m_sweepEnd};
        }
        --m_sweepEnd;
    }
    return std::nullopt;
}

qsizetype ListedThreads::hide(const QList<QUuid> &ids)
{
    for (const QUuid &id : ids) {
        m_hidden.insert(id);
        m_stale.remove(id);
    }
    if (ids.size() != 1) {
        // At once: one by one, many threads would take long.
        m_threads.removeIf([this](const ThreadSummary &thread) { return isHidden(thread.id); });
        m_sweepEnd = std::min(m_sweepEnd, m_threads.size());
        return -1;
    }
    const qsizetype position = positionOf(ids.constFirst());
    if (position < 0)
        return position;
    m_threads.removeAt(position);
    if (position < m_sweepEnd && m_sweepEnd <= m_threads.size())
        --m_sweepEnd;
    return position;
}

qsizetype ListedThreads::show(const ThreadSummary &thread)
{
    m_hidden.remove(thread.id);
    const qsizetype position = lowerBound(thread);
    m_threads.insert(position, thread);
    return position;
}

void ListedThreads::show(const QList<QUuid> &ids)
{
    for (const QUuid &id : ids)
        m_hidden.remove(id);
}

void ListedThreads::forgetHidden(const QList<QUuid> &ids)
{
    for (const QUuid &id : ids) {
        m_hidden.remove(id);
        m_removed.insert(id);
    }
}

qsizetype ListedThreads::setTitle(const QUuid &id, const std::optional<QString> &title)
{
    m_titles.insert(id, title);
    const qsizetype position = positionOf(id);
    if (position >= 0)
        m_threads[position].customTitle = title;
    return position;
}

} // namespace quellora
