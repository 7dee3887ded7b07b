#pragma once

#include "platform/Platform.h"

#include <map>

namespace quellora {

/// Hot keys of Carbon's event manager. Main thread only.
class GlobalHotkeysMac : public GlobalHotkeys
{
public:
    GlobalHotkeysMac() = default;
    /// Removes the handler and every registration.
    ~GlobalHotkeysMac() override;
    GlobalHotkeysMac(const GlobalHotkeysMac &) = delete;
    GlobalHotkeysMac &operator=(const GlobalHotkeysMac &) = delete;

    /// If this fails, every registration fails with its status.
    void installHandler(std::function<void(Registration)> onPress) override;
    void removeHandler() override;
    Result registerHotkey(QKeyCombination combo) override;
    void unregisterHotkey(Registration registration) override;

    /// Called by the system's event handler.
    void deliver(Registration registration) const;

private:
    std::function<void(Registration)> m_onPress;
    // EventHandlerRef and EventHotKeyRef.
    void *m_handler = nullptr;
    std::map<Registration, void *> m_hotkeys;
    Registration m_lastRegistration = 0;
    int m_handlerStatus = 0;
};

} // namespace quellora
