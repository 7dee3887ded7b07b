#include "platform/linux/PanelVeil.h"

#include "base/Log.h"

#include <QPointer>

#include <algorithm>
#include <utility>

namespace quellora {

class PanelVeil::CountedHold : public PanelVeil::Hold
{
public:
    explicit CountedHold(PanelVeil &veil) : m_veil(&veil) {}
    ~CountedHold() override
    {
        if (m_veil)
            m_veil->release(this);
    }

private:
    QPointer<PanelVeil> m_veil;
};

std::unique_ptr<PanelVeil::Hold> PanelVeil::hold(std::function<void()> ready)
{
    auto hold = std::make_unique<CountedHold>(*this);
    m_holds.append(hold.get());
    m_waiting.append({hold.get(), std::move(ready)});
    if (!m_isCovering && isNeeded()) {
        startCovering();
    } else if (!m_isCovering || m_isCovered) {
        QMetaObject::invokeMethod(
            this, [this, hold = hold.get()] { callReady(hold); }, Qt::QueuedConnection);
    }
    return hold;
}

std::unique_ptr<PanelVeil::Hold> PanelVeil::holdNow()
{
    auto hold = std::make_unique<CountedHold>(*this);
    m_holds.append(hold.get());
    if (!m_isCovering && isNeeded())
        startCovering();
    return hold;
}

void PanelVeil::panelShown()
{
    if (!m_isCovering && !m_holds.isEmpty())
        startCovering();
}

void PanelVeil::startCovering()
{
    m_isCovering = true;
    m_isCovered = false;
    m_since.start();
    cover([this, number = ++m_cover] {
        if (!m_isCovering || number != m_cover)
            return;
        m_isCovered = true;
        const QList<Waiting> waiting = m_waiting;
        for (const Waiting &one : waiting)
            callReady(one.hold);
    });
}

void PanelVeil::callReady(const CountedHold *hold)
{
    // Destroyed, called before, or a panel has appeared that is not covered yet.
    const auto found =
        std::find_if(m_waiting.begin(), m_waiting.end(),
                     [hold](const Waiting &waiting) { return waiting.hold == hold; });
    if (found == m_waiting.end() || (m_isCovering && !m_isCovered))
        return;
    const std::function<void()> ready = std::move(found->ready);
    m_waiting.erase(found);
    ready();
}

void PanelVeil::release(const CountedHold *hold)
{
    m_holds.removeOne(hold);
    m_waiting.removeIf([hold](const Waiting &one) { return one.hold == hold; });
    if (!m_holds.isEmpty())
        return;
    m_isCovered = false;
    if (!std::exchange(m_isCovering, false))
        return;
    uncover();
    logDuration(m_since.elapsed());
}

void PanelVeil::logDuration(qint64 milliseconds)
{
    Log::event(QStringLiteral("[ScreenSource] The panel was gone for %1 ms").arg(milliseconds));
}

} // namespace quellora
