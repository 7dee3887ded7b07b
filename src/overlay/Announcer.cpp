#include "overlay/Announcer.h"

#include <utility>

namespace quellora {

Announcer::Announcer(std::chrono::milliseconds interval, QObject *parent)
    : QObject(parent), m_interval(interval)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &Announcer::announceNext);
}

void Announcer::say(const QStringList &texts)
{
    for (const QString &text : texts)
        add({text, false});
}

void Announcer::sayState(const QString &text)
{
    m_waiting.removeIf([](const Text &waiting) { return waiting.isState; });
    add({text, true});
}

void Announcer::clear()
{
    m_waiting.clear();
}

void Announcer::add(const Text &text)
{
    if (text.text.isEmpty())
        return;
    m_waiting.append(text);
    // From the event loop: what is said in the same turn is announced together.
    if (!m_timer.isActive())
        m_timer.start(0);
}

void Announcer::announceNext()
{
    if (m_waiting.isEmpty())
        return;
    QString announcement = m_waiting.takeFirst().text;
    while (!m_waiting.isEmpty() &&
           announcement.size() + 2 + m_waiting.constFirst().text.size() <= maximumLength) {
        // The voice pauses between them.
        announcement +=
            announcement.back().isLetterOrNumber() ? QStringLiteral(". ") : QStringLiteral(" ");
        announcement += m_waiting.takeFirst().text;
    }
    // Also without a waiting text: the next one keeps its distance.
    m_timer.start(m_interval);
    Q_EMIT announced(announcement);
}

} // namespace quellora
