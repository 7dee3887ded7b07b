#pragma once

#include "hotkeys/LocalKeyMonitor.h"
#include "platform/Platform.h"

#include <utility>

namespace quellora {

/// LocalKeyMonitor with simulated key presses.
class FakeKeyMonitor : public LocalKeyMonitor
{
public:
    void install(std::function<void(const KeyDown &)> onKeyDown,
                 std::function<void()> onLost) override
    {
        ++installs;
        m_onKeyDown = std::move(onKeyDown);
        m_onLost = std::move(onLost);
    }
    void remove() override
    {
        m_onKeyDown = nullptr;
        m_onLost = nullptr;
    }

    bool isInstalled() const { return m_onKeyDown != nullptr; }
    /// Simulates a key press; ignored while not installed.
    void press(Qt::KeyboardModifiers modifiers, const QString &character)
    {
        send({modifiers, character, false});
    }
    void pressEscape() { send({{}, QString(), true}); }
    /// Simulates another program taking the keyboard.
    void loseKeyboard()
    {
        if (const auto onLost = m_onLost)
            onLost();
    }

    int installs = 0;

private:
    void send(const KeyDown &key)
    {
        // A copy: the handler may remove itself.
        if (const auto handler = m_onKeyDown)
            handler(key);
    }

    std::function<void(const KeyDown &)> m_onKeyDown;
    std::function<void()> m_onLost;
};

} // namespace quellora
