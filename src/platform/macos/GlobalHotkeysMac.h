#pragma once

#include "platform/Platform.h"

#include <map>

namespace quellora {

/// Global hot keys of the system. Statuses are the system's own. Main thread only.
class GlobalHotkeysMac : public GlobalHotkeys
{
public:
    GlobalHotkeysMac() = default;
    /// Removes the handler and every registration.
    ~GlobalHotkeysMac() override;
    GlobalHotkeysMac(const GlobalHotkeysMac &) = delete;
    GlobalHotkeysMac &operator=(const GlobalHotkeysMac &) = delete;

    /// When it fails, every later registration fails with its status.
    void installHandler(std::function<void(quint32 id)> onPress) override;
    void removeHandler() override;
    Result registerHotkey(const QString &key, quint32 keyCode, quint32 modifiers, quint32 signature,
                          quint32 id) override;
    void unregisterHotkey(Registration registration) override;

    /// To be called by the system's handler.
    void deliver(quint32 id) const;

private:
    std::function<void(quint32)> m_onPress;
    // The system's references.
    void *m_handler = nullptr;
    std::map<Registration, void *> m_hotkeys;
    Registration m_lastRegistration = 0;
    int m_handlerStatus = 0;
};

} // namespace quellora
