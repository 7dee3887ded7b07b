#include "platform/macos/GlobalHotkeysMac.h"

#include <utility>

#import <Carbon/Carbon.h>

namespace quellora {
namespace {

static_assert(quint32{GlobalHotkeys::Command} == quint32{cmdKey});
static_assert(quint32{GlobalHotkeys::Shift} == quint32{shiftKey});
static_assert(quint32{GlobalHotkeys::Option} == quint32{optionKey});
static_assert(quint32{GlobalHotkeys::Control} == quint32{controlKey});
static_assert(sizeof(EventHotKeyID) == 8);

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

void GlobalHotkeysMac::installHandler(std::function<void(quint32)> onPress)
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

GlobalHotkeys::Result GlobalHotkeysMac::registerHotkey(const QString &, quint32 keyCode,
                                                       quint32 modifiers, quint32 signature,
                                                       quint32 id)
{
    if (m_handlerStatus != noErr)
        return {m_handlerStatus, 0};
    EventHotKeyRef hotkey = nullptr;
    const OSStatus status = RegisterEventHotKey(keyCode, modifiers, {signature, id},
                                                GetApplicationEventTarget(), 0, &hotkey);
    if (status != noErr)
        return {status, 0};
    m_hotkeys.emplace(++m_lastRegistration, hotkey);
    return {noErr, m_lastRegistration};
}

void GlobalHotkeysMac::unregisterHotkey(Registration registration)
{
    const auto found = m_hotkeys.find(registration);
    if (found == m_hotkeys.end())
        return;
    UnregisterEventHotKey(static_cast<EventHotKeyRef>(found->second));
    m_hotkeys.erase(found);
}

void GlobalHotkeysMac::deliver(quint32 id) const
{
    // A copy: it may remove the handler.
    if (const auto onPress = m_onPress)
        onPress(id);
}

} // namespace quellora
