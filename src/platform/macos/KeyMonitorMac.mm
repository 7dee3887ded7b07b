#include "platform/macos/KeyMonitorMac.h"

#include "platform/macos/Cocoa.h"
#include "platform/macos/RecorderKeys.h"

#include <utility>

namespace quellora {

void KeyMonitorMac::install(std::function<void(const KeyDown &)> onKeyDown)
{
    m_monitor = Cocoa::monitorOwnEvents(
        NSEventMaskKeyDown, [onKeyDown = std::move(onKeyDown)](NSEvent *event) -> NSEvent * {
            NSString *characters = [event charactersByApplyingModifiers:NSEventModifierFlags(0)];
            onKeyDown(
                recorderKeyDown(event.modifierFlags, Cocoa::string(characters), event.keyCode));
            return nil;
        });
}

} // namespace quellora
