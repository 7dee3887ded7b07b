#include "overlay/page/PageSurface.h"

#include "app/Log.h"

#include <utility>

namespace quellora {

PageSurface::LoadId PageSurface::load(const QByteArray &html, const QString &logLine)
{
    const LoadId id = ++m_latestLoad;
    QMetaObject::invokeMethod(
        this,
        [this, id, html, logLine] {
            if (id != m_latestLoad)
                return;
            Log::event(logLine);
            dropScripts();
            startLoad(id, html);
        },
        Qt::QueuedConnection);
    return id;
}

void PageSurface::evaluate(const QString &script)
{
    runScript(script, 0);
}

void PageSurface::evaluateLatest(ScriptMaker script)
{
    if (m_runningToken != 0) {
        m_waitingScript = std::move(script);
        return;
    }
    const QString text = script();
    if (text.isEmpty())
        return;
    m_runningToken = ++m_lastToken;
    runScript(text, m_runningToken);
}

void PageSurface::scriptDone(quint64 token)
{
    if (token == 0 || token != m_runningToken)
        return;
    m_runningToken = 0;
    if (ScriptMaker next = std::exchange(m_waitingScript, nullptr))
        evaluateLatest(std::move(next));
}

void PageSurface::dropScripts()
{
    m_runningToken = 0;
    m_waitingScript = nullptr;
}

} // namespace quellora
