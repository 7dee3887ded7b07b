#pragma once

#include "platform/linux/PanelVeil.h"

#include <functional>
#include <utility>

namespace quellora {

/// A panel that is covered when the test says so.
class FakeVeil : public PanelVeil
{
public:
    using PanelVeil::panelShown;

    /// The desktop no longer draws the panel.
    void finish()
    {
        if (done)
            done();
    }
    bool isGone() const { return covers > uncovers; }

    bool isVisible = true;
    bool isCoveredAtOnce = true;
    int covers = 0;
    int uncovers = 0;
    std::function<void()> done;
    std::function<void()> onCover;
    std::function<void()> onUncover;

protected:
    bool isNeeded() const override { return isVisible; }
    void cover(std::function<void()> newDone) override
    {
        ++covers;
        if (onCover)
            onCover();
        done = std::move(newDone);
        if (isCoveredAtOnce)
            QMetaObject::invokeMethod(
                this, [this] { finish(); }, Qt::QueuedConnection);
    }
    void uncover() override
    {
        ++uncovers;
        if (onUncover)
            onUncover();
    }
    void logDuration(qint64) override {}
};

} // namespace quellora
