#include "platform/macos/PermissionsMac.h"

#include "platform/macos/Cocoa.h"

#import <ApplicationServices/ApplicationServices.h>

namespace quellora {

PermissionsMac::PermissionsMac() : m_answers(ask())
{
    m_activated = Cocoa::observe(NSNotificationCenter.defaultCenter,
                                 NSApplicationDidBecomeActiveNotification, [this] { askAgain(); });
    m_otherActivated =
        Cocoa::observe(NSWorkspace.sharedWorkspace.notificationCenter,
                       NSWorkspaceDidActivateApplicationNotification, [this] { askAgain(); });
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
    askAgain();
}

PermissionsMac::Answers PermissionsMac::ask() const
{
    return {isAccessibilityTrusted(), isScreenRecordingGranted()};
}

void PermissionsMac::askAgain()
{
    if (m_answers.update(ask()) && m_handler)
        m_handler();
}

} // namespace quellora
