#pragma once

#include "platform/Platform.h"
#include "platform/macos/LastValue.h"
#include "platform/macos/Subscription.h"

namespace quellora {

/// The program's effective appearance and the system's "reduce motion" setting. Main thread only.
class AppearanceMac : public Appearance
{
public:
    AppearanceMac();

    bool isDark() const override { return m_dark.value(); }
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }
    bool reducesMotion() const override { return m_reducesMotion.value(); }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_motionHandler = std::move(handler);
    }

private:
    LastValue<bool> m_dark;
    LastValue<bool> m_reducesMotion;
    std::function<void()> m_handler;
    std::function<void()> m_motionHandler;
    Subscription m_appearanceChanged;
    Subscription m_motionChanged;
};

} // namespace quellora
