#include "history/PendingRemovals.h"

#include <algorithm>
#include <utility>

namespace quellora {

PendingRemovals::PendingRemovals(Clock clock, QObject *parent)
    : QObject(parent), m_clock(std::move(clock))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &PendingRemovals::commitDue);
}

void PendingRemovals::add(Removal removal)
{
    m_pending.append({std::move(removal), m_clock() + undoTime});
    scheduleCommit();
    Q_EMIT changed();
    Q_EMIT added(text());
}

QString PendingRemovals::text() const
{
    return m_pending.isEmpty() ? QString() : m_pending.constLast().removal.text;
}

void PendingRemovals::undo()
{
    if (m_pending.isEmpty())
        return;
    const Pending latest = m_pending.takeLast();
    scheduleCommit();
    latest.removal.undo();
    Q_EMIT changed();
}

void PendingRemovals::commitDue()
{
    const auto now = m_clock();
    bool isAny = false;
    while (!m_pending.isEmpty() && m_pending.constFirst().deadline <= now) {
        m_pending.takeFirst().removal.commit();
        isAny = true;
    }
    scheduleCommit();
    if (isAny)
        Q_EMIT changed();
}

void PendingRemovals::commitAll()
{
    if (m_pending.isEmpty())
        return;
    while (!m_pending.isEmpty())
        m_pending.takeFirst().removal.commit();
    scheduleCommit();
    Q_EMIT changed();
}

void PendingRemovals::scheduleCommit()
{
    if (m_pending.isEmpty()) {
        m_timer.stop();
        return;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_pending.constFirst().deadline - m_clock());
    m_timer.start(std::max(left, std::chrono::milliseconds(0)));
}

} // namespace quellora
