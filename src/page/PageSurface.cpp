#include "page/PageSurface.h"

#include "base/Log.h"

#include <utility>

namespace quellora {

namespace {

std::chrono::nanoseconds monotonicNow()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

} // namespace

PageSurface::PageSurface(QObject *parent) : PageSurface(monotonicNow, parent) {}

PageSurface::PageSurface(Clock clock, QObject *parent)
    : QObject(parent)
    , m_pacer(clock,
              [this](const QString &script, quint64 token) {
                  runScript(script, token);
                  m_silence.begin();
              })
    , m_restarts(clock)
    , m_messages(std::move(clock))
    , m_silence({[this](quint64 number) { ask(number); }, [this] { return isSeen(); },
                 [this] { endSilentProcess(); }})
{
    // The first listener: a script that was sent while the page was loading may never report, and
    // later ones would wait for it.
    connect(this, &PageSurface::loadFinished, this, [this] {
        m_pacer.drop();
        m_silence.setLoading(false);
    });
    connect(this, &PageSurface::loadFailed, this, [this] { m_silence.setLoading(false); });
}

PageSurface::LoadId PageSurface::load(const PageContent &page, const QString &logLine)
{
    const LoadId id = ++m_latestLoad;
    m_waitingLoad = [this, id, page, logLine] {
        Log::event(logLine);
        m_pacer.drop();
        m_startedLoad = id;
        m_isPageLost = false;
        m_wasSilent = false;
        startLoad(id, page);
        m_silence.setLoading(true);
    };
    QMetaObject::invokeMethod(this, &PageSurface::startLatestLoad, Qt::QueuedConnection);
    return id;
}

void PageSurface::startLatestLoad()
{
    if (m_isHeld)
        return;
    if (const auto start = std::exchange(m_waitingLoad, nullptr))
        start();
}

void PageSurface::evaluate(const QString &script)
{
    runScript(script, 0);
    m_silence.begin();
}

void PageSurface::evaluateInBridge(const QString &script)
{
    runBridgeScript(script);
    m_silence.begin();
}

void PageSurface::evaluatePaced(ScriptPacer::Maker script, std::function<void()> hasRun)
{
    m_pacer.request(std::move(script), std::move(hasRun));
}

void PageSurface::setHeld(bool held)
{
    if (std::exchange(m_isHeld, held) == held)
        return;
    m_pacer.setHeld(held);
    if (!held)
        startLatestLoad();
}

bool PageSurface::admitsMessage()
{
    const MessageBudget::Verdict verdict = m_messages.take();
    if (verdict == MessageBudget::Verdict::FloodBegins) {
        Log::event(QStringLiteral("[ResponseView] ERROR: The page posts more than %1 messages a "
                                  "second, dropping the rest")
                       .arg(MessageBudget::messages));
    }
    return verdict == MessageBudget::Verdict::Taken;
}

void PageSurface::endSilentProcess()
{
    Log::event(QStringLiteral("[ResponseView] ERROR: The page does not answer any more, ending its "
                              "process"));
    m_wasSilent = true;
    endProcess();
}

void PageSurface::renderProcessEnded(const QString &how)
{
    m_pacer.drop();
    m_silence.forget();
    const bool isShown = m_startedLoad != 0;
    m_isPageLost = isShown && !m_restarts.take();
    QString next;
    if (m_isPageLost)
        next = QStringLiteral(", too often: the page stays empty until the next one");
    else if (isShown)
        next = QStringLiteral(", loading the page again");
    Log::event(
        QStringLiteral("[ResponseView] ERROR: The page's process ended (%1)%2").arg(how, next));
    Q_EMIT renderProcessTerminated();
    if (isShown && !m_isPageLost) {
        // Not within the engine's own notification; another load may start before.
        QMetaObject::invokeMethod(
            this,
            [this, id = m_startedLoad] {
                if (id != m_startedLoad)
                    return;
                restartLoad(m_wasSilent);
                m_silence.setLoading(true);
            },
            Qt::QueuedConnection);
    }
}

} // namespace quellora
