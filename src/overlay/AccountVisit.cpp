#include "overlay/AccountVisit.h"

#include <QEvent>
#include <QWindow>

#include <utility>

namespace quellora {

AccountVisit::AccountVisit(QWindow &panel, Clock clock) : m_clock(std::move(clock))
{
    panel.installEventFilter(this);
}

void AccountVisit::begin()
{
    m_begun = m_clock();
    // The pointer is still over the panel.
    m_lastReturn = m_begun;
}

void AccountVisit::setLasting(bool isLasting)
{
    // What is known now is fresh.
    if (isLasting && !m_isLasting)
        m_lastReturn = m_clock();
    m_isLasting = isLasting;
}

bool AccountVisit::eventFilter(QObject *, QEvent *event)
{
    if (event->type() != QEvent::Enter && event->type() != QEvent::FocusIn &&
        event->type() != QEvent::Show)
        return false;
    const auto now = m_clock();
    const bool isVisiting = m_isLasting || (m_begun && now - *m_begun < longestVisit);
    if (isVisiting && (!m_lastReturn || now - *m_lastReturn >= pause)) {
        m_lastReturn = now;
        Q_EMIT returned();
    }
    return false;
}

} // namespace quellora
