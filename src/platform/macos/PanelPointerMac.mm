#include "platform/macos/PanelPointerMac.h"

#include "platform/macos/ClickThrough.h"
#include "platform/macos/Cocoa.h"

#include <QWindow>

namespace quellora {
namespace {

constexpr NSEventMask moves = NSEventMaskMouseMoved;
// Releases: after a drag the setting is evaluated again.
constexpr NSEventMask releases =
    NSEventMaskLeftMouseUp | NSEventMaskRightMouseUp | NSEventMaskOtherMouseUp;
constexpr NSEventMask crossings = NSEventMaskMouseEntered | NSEventMaskMouseExited;

bool isButtonHeld()
{
    return NSEvent.pressedMouseButtons != 0;
}

bool isHover(NSEventType type)
{
    return type == NSEventTypeMouseMoved || type == NSEventTypeMouseEntered ||
           type == NSEventTypeMouseExited;
}

} // namespace

PanelPointerMac::PanelPointerMac(QWindow &window) : m_window(window), m_hover(window) {}

void PanelPointerMac::setResponseRect(const QRect &responseRect)
{
    m_responseRect = responseRect;
    windowChanged();
}

void PanelPointerMac::windowRecreated()
{
    m_isSet = false;
    windowChanged();
}

void PanelPointerMac::windowChanged()
{
    updateMonitors();
    applyPassing();
}

void PanelPointerMac::updateMonitors()
{
    const bool isShown = m_window.isVisible() && Cocoa::window(m_window);
    if (!isShown) {
        m_ownEvents.reset();
        m_hover.reset();
    } else if (!m_ownEvents.isActive()) {
        m_ownEvents = Cocoa::monitorOwnEvents(moves | releases | crossings, [this](NSEvent *event) {
            applyPassing();
            if (NSApp.active)
                m_hover.reset();
            else if (isHover(event.type) && !isButtonHeld())
                m_hover.pointerMoved(Cocoa::pointerPosition(),
                                     event.type != NSEventTypeMouseExited && !m_isPassing &&
                                         event.window == Cocoa::window(m_window));
            return event;
        });
    }
    // Global monitors do not receive the program's own events, nor local ones those of others.
    if (!isShown || m_responseRect.isEmpty()) {
        m_othersEvents.reset();
    } else if (!m_othersEvents.isActive()) {
        m_othersEvents =
            Cocoa::monitorOthersEvents(moves | releases, [this](NSEvent *) { applyPassing(); });
    }
}

void PanelPointerMac::applyPassing()
{
    NSWindow *native = Cocoa::window(m_window);
    if (!native)
        return;
    const QPointF pointer = Cocoa::pointerPosition();
    const std::optional<bool> passes =
        letsPointerPass(pointer, isButtonHeld(), m_window.geometry(), m_responseRect);
    if (passes)
        m_isPassing = *passes;
    // Set explicitly at least once: until then the system passes events where nothing is drawn. Qt
    // resets it when the window's flags change.
    if (!m_isSet || bool(native.ignoresMouseEvents) != m_isPassing)
        native.ignoresMouseEvents = m_isPassing;
    m_isSet = true;
    if (m_isPassing && !NSApp.active)
        m_hover.pointerMoved(pointer, false);
}

} // namespace quellora
