#include "platform/macos/PermissionsMac.h"

#include "platform/macos/Cocoa.h"

#import <ApplicationServices/ApplicationServices.h>

namespace quellora {

PermissionsMac::PermissionsMac() : m_state(currentState())
{
    m_activated = Cocoa::observe(NSNotificationCenter.defaultCenter,
                                 NSApplicationDidBecomeActiveNotification, [this] { recheck(); });
    m_otherActivated =
        Cocoa::observe(NSWorkspace.sharedWorkspace.notificationCenter,
                       NSWorkspaceDidActivateApplicationNotification, [this] { recheck(); });
}

bool PermissionsMac::isAccessibilityTrusted() const
{
    return AXIsProcessTrusted();
}

bool PermissionsMac::isScreenRecordingGranted() const
{
    return CGPreflightScreenCaptureAccess();
}

void PermissionsMac::requestScreenRecording()
{
    CGRequestScreenCaptureAccess();
    recheck();
}

PermissionsMac::State PermissionsMac::currentState() const
{
    return {isAccessibilityTrusted(), isScreenRecordingGranted()};
}

void PermissionsMac::recheck()
{
    if (m_state.update(currentState()) && m_handler)
        m_handler();
}

} // namespace quellora
