#include "platform/macos/GlobalHotkeysMac.h"

#include "platform/macos/CarbonKeys.h"

#include <utility>

#import <Carbon/Carbon.h>

namespace quellora {
namespace {

static_assert(CarbonKeys::command == quint32{cmdKey});
static_assert(CarbonKeys::shift == quint32{shiftKey});
static_assert(CarbonKeys::option == quint32{optionKey});
static_assert(CarbonKeys::control == quint32{controlKey});
static_assert(sizeof(EventHotKeyID) == 8);

constexpr OSType signature = 0x516C6F72; // "Qlor"

GlobalHotkeys::Failure failure(OSStatus status)
{
    using Kind = GlobalHotkeys::Failure::Kind;
    return {status == eventHotKeyExistsErr ? Kind::Taken : Kind::Unavailable, status};
}

OSStatus onHotkeyPressed(EventHandlerCallRef, EventRef event, void *userData)
{
    if (!event || !userData)
        return eventNotHandledErr;
    EventHotKeyID hotkey = {};
    const OSStatus status = GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID,
                                              nullptr, sizeof(hotkey), nullptr, &hotkey);
    if (status != noErr)
        return status;
    static_cast<const GlobalHotkeysMac *>(userData)->deliver(hotkey.id);
    return noErr;
}

} // namespace

GlobalHotkeysMac::~GlobalHotkeysMac()
{
    for (const auto &[registration, hotkey] : m_hotkeys)
        UnregisterEventHotKey(static_cast<EventHotKeyRef>(hotkey));
    removeHandler();
}

void GlobalHotkeysMac::installHandler(std::function<void(Registration)> onPress)
{
    removeHandler();
    m_onPress = std::move(onPress);
    const EventTypeSpec pressed = {kEventClassKeyboard, kEventHotKeyPressed};
    EventHandlerRef handler = nullptr;
    m_handlerStatus = InstallEventHandler(GetApplicationEventTarget(), &onHotkeyPressed, 1,
                                          &pressed, this, &handler);
    m_handler = handler;
}

void GlobalHotkeysMac::removeHandler()
{
    if (auto *handler = static_cast<EventHandlerRef>(std::exchange(m_handler, nullptr)))
        RemoveEventHandler(handler);
    m_onPress = nullptr;
    m_handlerStatus = noErr;
}

GlobalHotkeys::Result GlobalHotkeysMac::registerHotkey(QKeyCombination combo)
{
    if (m_handlerStatus != noErr)
        return tl::unexpected(failure(m_handlerStatus));
    const std::optional<quint32> found = CarbonKeys::keyCode(combo.key());
    if (!found)
        return tl::unexpected(Failure{Failure::Kind::UnsupportedKey, eventHotKeyInvalidErr});
    const quint32 keyCode = *found;
    const quint32 modifiers = CarbonKeys::modifierFlags(combo.keyboardModifiers());
    const auto id = static_cast<quint32>(m_lastRegistration + 1);
    EventHotKeyRef hotkey = nullptr;
    const OSStatus status = RegisterEventHotKey(keyCode, modifiers, {signature, id},
                                                GetApplicationEventTarget(), 0, &hotkey);
    if (status != noErr)
        return tl::unexpected(failure(status));
    m_hotkeys.emplace(++m_lastRegistration, hotkey);
    return m_lastRegistration;
}

void GlobalHotkeysMac::unregisterHotkey(Registration registration)
{
    const auto found = m_hotkeys.find(registration);
    if (found == m_hotkeys.end())
        return;
    UnregisterEventHotKey(static_cast<EventHotKeyRef>(found->second));
    m_hotkeys.erase(found);
}

void GlobalHotkeysMac::deliver(Registration registration) const
{
    // A copy: it may remove the handler.
    if (const auto onPress = m_onPress)
        onPress(registration);
}

} // namespace quellora
