#include "platform/macos/PanelKeeperMac.h"

#include "platform/PanelProperties.h"
#include "platform/macos/CaptureExclusion.h"
#include "platform/macos/Cocoa.h"
#include "platform/macos/NonactivatingPanelMac.h"

#include <QEvent>
#include <QOperatingSystemVersion>
#include <QPlatformSurfaceEvent>
#include <QVariant>
#include <QWindow>

#include <utility>

namespace quellora {
namespace {

Capability noNativeWindow()
{
    return Capability::unsupported(QStringLiteral("The window could not be made"));
}

} // namespace

PanelKeeperMac &PanelKeeperMac::of(QWindow &window)
{
    auto *keeper = window.findChild<PanelKeeperMac *>(QString(), Qt::FindDirectChildrenOnly);
    return keeper ? *keeper : *new PanelKeeperMac(window);
}

PanelKeeperMac::PanelKeeperMac(QWindow &window)
    : QObject(&window), m_window(window), m_pointer(window)
{
    window.installEventFilter(this);
    // After losing the keyboard the panel refuses it again: otherwise Qt would treat a click as
    // giving it the focus. Queued, because Qt is still processing the change.
    connect(
        &window, &QWindow::activeChanged, this,
        [this] {
            if (!m_window.isActive() && !Cocoa::window(m_window).keyWindow)
                setAcceptsKeyboard(false);
        },
        Qt::QueuedConnection);
    // Qt lowers the level of visible floating windows when the program is deactivated.
    NSNotificationCenter *center = NSNotificationCenter.defaultCenter;
    m_activated =
        Cocoa::observe(center, NSApplicationDidBecomeActiveNotification, [this] { applyTraits(); });
    m_deactivated =
        Cocoa::observe(center, NSApplicationDidResignActiveNotification, [this] { applyTraits(); });
}

bool PanelKeeperMac::createNative()
{
    if (m_window.handle() && m_isNonactivating)
        return true;
    const bool wasVisible = m_window.isVisible();
    m_window.destroy();
    {
        const NonactivatingPanelMac nonactivating;
        m_isCreating = true;
        m_window.create();
        m_isCreating = false;
    }
    if (wasVisible)
        m_window.show();
    return Cocoa::window(m_window) != nil;
}

Capability PanelKeeperMac::keepTraits()
{
    m_hasTraits = true;
    if (!createNative())
        return noNativeWindow();
    applyTraits();
    if ([Cocoa::window(m_window) isKindOfClass:NSPanel.class])
        return Capability::applied();
    return Capability::bestEffort(
        QStringLiteral("The window is no panel: a click on it brings the program to the front"));
}

Capability PanelKeeperMac::keepCaptureExclusion()
{
    m_isExcluded = true;
    if (!createNative())
        return noNativeWindow();
    apply();
    return captureExclusion(Cocoa::window(m_window).sharingType == NSWindowSharingNone,
                            QOperatingSystemVersion::current().majorVersion());
}

Capability PanelKeeperMac::keepClickThrough(const QRect &responseRect)
{
    m_pointer.setResponseRect(responseRect);
    return m_window.handle() ? Capability::applied() : noNativeWindow();
}

Capability PanelKeeperMac::orderFront()
{
    if (!createNative())
        return noNativeWindow();
    m_window.show();
    // Not QWindow::raise(), which activates the program.
    [Cocoa::window(m_window) orderFrontRegardless];
    return Capability::applied();
}

void PanelKeeperMac::announce(const QString &text)
{
    NSWindow *native = Cocoa::window(m_window);
    if (!native || text.isEmpty())
        return;
    // Read after what is being said.
    NSAccessibilityPostNotificationWithUserInfo(
        native, NSAccessibilityAnnouncementRequestedNotification, @{
            NSAccessibilityAnnouncementKey : Cocoa::string(text),
            NSAccessibilityPriorityKey : [NSNumber numberWithInteger:NSAccessibilityPriorityMedium]
        });
}

Capability PanelKeeperMac::takeKeyboard()
{
    NSWindow *native = Cocoa::window(m_window);
    if (!native)
        return noNativeWindow();
    if (!native.visible)
        return Capability::bestEffort(
            QStringLiteral("The window takes the keyboard only while it is on the screen"));
    if (!native.keyWindow) {
        m_previousProcess = NSWorkspace.sharedWorkspace.frontmostApplication.processIdentifier;
        // Qt's panels refuse to become the key window while they do not accept the focus.
        setAcceptsKeyboard(true);
        // Makes the panel the key window and its view the first responder without activation.
        m_window.requestActivate();
    }
    // The flag stays set: the window may still become the key window later.
    return native.keyWindow ? Capability::applied()
                            : Capability::bestEffort(QStringLiteral(
                                  "The system has not given the window the keyboard yet"));
}

void PanelKeeperMac::returnKeyboard()
{
    NSWindow *native = Cocoa::window(m_window);
    if (!native.keyWindow)
        return;
    // If this program is active, the previous one has to be activated.
    const int previous = std::exchange(m_previousProcess, 0);
    if (NSApp.active && previous != 0 && previous != NSProcessInfo.processInfo.processIdentifier) {
        [[NSRunningApplication runningApplicationWithProcessIdentifier:previous]
            activateWithOptions:NSApplicationActivationOptions(0)];
    }
    // A key window cannot resign on request. Ordering it out gives the keyboard to the key window
    // of the active program; since the panel refuses the keyboard from then on, ordering it front
    // does not take it back. Nothing is drawn in between.
    const NSWindowAnimationBehavior animation = native.animationBehavior;
    native.animationBehavior = NSWindowAnimationBehaviorNone;
    [native orderOut:nil];
    setAcceptsKeyboard(false);
    [native orderFrontRegardless];
    native.animationBehavior = animation;
}

bool PanelKeeperMac::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::PlatformSurface:
        if (static_cast<QPlatformSurfaceEvent *>(event)->surfaceEventType() ==
            QPlatformSurfaceEvent::SurfaceCreated) {
            m_isNonactivating = m_isCreating;
            apply();
            m_pointer.windowRecreated();
        } else {
            m_isNonactivating = false;
        }
        break;
    case QEvent::Show:
        // Sent before the native window is visible.
        apply();
        break;
    case QEvent::Hide:
        setAcceptsKeyboard(false);
        m_pointer.windowChanged();
        break;
    case QEvent::Move:
    case QEvent::Resize:
        m_pointer.windowChanged();
        break;
    case QEvent::DynamicPropertyChange:
        if (static_cast<QDynamicPropertyChangeEvent *>(event)->propertyName() ==
            announcementProperty)
            announce(m_window.property(announcementProperty).toString());
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void PanelKeeperMac::setAcceptsKeyboard(bool accepts)
{
    if (m_window.flags().testFlag(Qt::WindowDoesNotAcceptFocus) != accepts)
        return;
    m_window.setFlag(Qt::WindowDoesNotAcceptFocus, !accepts);
    // Setting the flags made Qt reset the style, the level and the handling of pointer events.
    apply();
}

void PanelKeeperMac::apply()
{
    if (NSWindow *native = Cocoa::window(m_window); native && m_isExcluded)
        native.sharingType = NSWindowSharingNone;
    applyTraits();
    m_pointer.windowChanged();
}

void PanelKeeperMac::applyTraits()
{
    NSWindow *native = Cocoa::window(m_window);
    if (!native || !m_hasTraits)
        return;
    if ([native isKindOfClass:NSPanel.class]) {
        auto *panel = static_cast<NSPanel *>(native);
        panel.styleMask = panel.styleMask | NSWindowStyleMaskNonactivatingPanel;
        panel.becomesKeyOnlyIfNeeded = YES;
    }
    // Replaces Qt's behaviour, which may contain a conflicting option.
    native.collectionBehavior =
        NSWindowCollectionBehaviorCanJoinAllSpaces | NSWindowCollectionBehaviorFullScreenAuxiliary;
    native.hidesOnDeactivate = NO;
    native.hasShadow = YES;
    native.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
    // Set last: it makes the system evaluate style and behaviour again.
    native.level = NSFloatingWindowLevel;
}

} // namespace quellora
