#include "page/SilenceWatch.h"

#include <chrono>
#include <utility>

namespace quellora {

using namespace std::chrono_literals;

SilenceWatch::SilenceWatch(Page page) : m_page(std::move(page))
{
    m_seconds.setInterval(1s);
    QObject::connect(&m_seconds, &QTimer::timeout, &m_seconds, [this] { tick(); });
}

void SilenceWatch::begin()
{
    if (!m_seconds.isActive()) {
        m_unanswered = 0;
        m_seconds.start();
    }
    // Scripts follow each other closely while an answer streams; the tick asks after the last.
    m_awaited = m_asked + 1;
}

void SilenceWatch::setLoading(bool isLoading)
{
    m_isLoading = isLoading;
    begin();
}

void SilenceWatch::heard(quint64 number)
{
    m_hasAnswered = true;
    m_unanswered = 0;
    if (number < m_awaited)
        return;
    m_awaited = 0;
    if (!m_isLoading)
        m_isReplaced = false;
}

void SilenceWatch::forget()
{
    m_hasAnswered = false;
    m_isReplaced = true;
    m_isLoading = false;
    m_awaited = 0;
    m_seconds.stop();
}

void SilenceWatch::tick()
{
    if (!m_isLoading && m_awaited == 0 && !m_page.isSeen()) {
        m_seconds.stop();
        return;
    }
    if (m_unanswered >= (m_hasAnswered && !m_isReplaced ? patience : startPatience)) {
        m_seconds.stop();
        m_page.isSilent();
        return;
    }
    ++m_unanswered;
    m_page.ask(++m_asked);
}

} // namespace quellora
