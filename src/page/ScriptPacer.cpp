#include "page/ScriptPacer.h"

#include <utility>

namespace quellora {

using namespace std::chrono_literals;

ScriptPacer::ScriptPacer(Clock clock, Run run) : m_clock(std::move(clock)), m_run(std::move(run))
{
    m_pause.setSingleShot(true);
    m_pause.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_pause, &QTimer::timeout, &m_pause, [this] { runWaiting(); });
}

ScriptPacer::Nanoseconds ScriptPacer::pauseAfter(Nanoseconds took)
{
    // Style, layout and painting follow the script, so an equal pause would keep the page busy for
    // more than half of the time.
    return took > 16ms ? 2 * took : 0ms;
}

void ScriptPacer::request(Maker make, std::function<void()> hasRun)
{
    m_waiting = {std::move(make), std::move(hasRun)};
    if (!isBusy())
        runWaiting();
}

void ScriptPacer::done(quint64 token)
{
    if (token == 0 || token != m_runningToken)
        return;
    m_runningToken = 0;
    const Nanoseconds pause = pauseAfter(m_clock() - m_startedAt);
    if (pause > 0ms)
        m_pause.start(std::chrono::ceil<std::chrono::milliseconds>(pause));
    if (const auto hasRun = std::exchange(m_hasRun, nullptr))
        hasRun();
    runWaiting();
}

void ScriptPacer::drop()
{
    m_runningToken = 0;
    m_waiting = {};
    m_hasRun = nullptr;
    m_pause.stop();
}

void ScriptPacer::setHeld(bool held)
{
    m_isHeld = held;
    runWaiting();
}

void ScriptPacer::runWaiting()
{
    // A loop instead of recursion, because a script may finish synchronously.
    while (!isBusy() && m_waiting.make) {
        Request request = std::exchange(m_waiting, {});
        const QString text = request.make();
        if (text.isEmpty())
            continue;
        m_hasRun = std::move(request.hasRun);
        m_runningToken = ++m_lastToken;
        m_startedAt = m_clock();
        m_run(text, m_runningToken);
    }
}

} // namespace quellora
