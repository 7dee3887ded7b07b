#include "page/LatestScript.h"

#include <algorithm>
#include <utility>

namespace quellora {

using namespace std::chrono_literals;

LatestScript::LatestScript(Clock clock, Run run) : m_clock(std::move(clock)), m_run(std::move(run))
{
    m_pause.setSingleShot(true);
    m_pause.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_pause, &QTimer::timeout, &m_pause, [this] { runWaiting(); });
}

LatestScript::Nanoseconds LatestScript::pauseAfter(Nanoseconds took, qsizetype size)
{
    const Nanoseconds forSize = std::chrono::milliseconds(size / 8192);
    return std::max<Nanoseconds>(took - 16ms, std::min<Nanoseconds>(forSize, 100ms));
}

void LatestScript::request(Maker script)
{
    m_waiting = std::move(script);
    if (!isBusy())
        runWaiting();
}

void LatestScript::done(quint64 token)
{
    if (token == 0 || token != m_runningToken)
        return;
    m_runningToken = 0;
    const Nanoseconds pause = pauseAfter(m_clock() - m_startedAt, m_runningSize);
    if (pause > 0ms)
        m_pause.start(std::chrono::ceil<std::chrono::milliseconds>(pause));
    runWaiting();
}

void LatestScript::drop()
{
    m_runningToken = 0;
    m_waiting = nullptr;
    m_pause.stop();
}

void LatestScript::setHeld(bool held)
{
    m_isHeld = held;
    runWaiting();
}

void LatestScript::runWaiting()
{
    // A script may report at once and another may have come meanwhile, so this is no recursion.
    while (!isBusy() && m_waiting) {
        const QString text = std::exchange(m_waiting, nullptr)();
        if (text.isEmpty())
            continue;
        m_runningToken = ++m_lastToken;
        m_runningSize = text.size();
        m_startedAt = m_clock();
        m_run(text, m_runningToken);
    }
}

} // namespace quellora
