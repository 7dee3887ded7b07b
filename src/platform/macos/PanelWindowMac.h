#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The floating panel on macOS: a non-activating NSPanel above ordinary windows, on every space and
/// beside full-screen programs. Only makeKey() gives it the keyboard, without activating the
/// program.
class PanelWindowMac : public PanelWindow
{
public:
    Capability applyPanelTraits(QWindow &window) override;
    Capability excludeFromCapture(QWindow &window) override;
    Capability setClickThrough(QWindow &window, const QRect &responseRect) override;
    Capability orderFront(QWindow &window) override;
    /// BestEffort while the window is not visible or not yet the key window.
    Capability makeKey(QWindow &window) override;
    void resignKey(QWindow &window) override;
    bool isCompositing() const override { return true; }
    void onCompositingChanged(std::function<void()>) override {}
};

} // namespace quellora
