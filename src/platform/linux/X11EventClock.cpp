#include "platform/linux/X11EventClock.h"

#include <QGuiApplication>

#include <cstring>

namespace quellora {

X11EventClock::X11EventClock(const X11Connection &x11)
{
    static constexpr char inputExtensionName[] = "XInputExtension";
    const auto cookie =
        xcb_query_extension(x11.get(), sizeof inputExtensionName - 1, inputExtensionName);
    const XcbPtr<xcb_query_extension_reply_t> reply(
        xcb_query_extension_reply(x11.get(), cookie, nullptr));
    if (reply && reply->present)
        m_inputExtension = reply->major_opcode;
    qGuiApp->installNativeEventFilter(this);
}

xcb_timestamp_t X11EventClock::timeOf(const xcb_generic_event_t *event, quint8 inputExtension)
{
    switch (event->response_type & ~0x80) {
    case XCB_KEY_PRESS:
    case XCB_KEY_RELEASE:
    case XCB_BUTTON_PRESS:
    case XCB_BUTTON_RELEASE:
    case XCB_MOTION_NOTIFY:
    case XCB_ENTER_NOTIFY:
    case XCB_LEAVE_NOTIFY:
        return reinterpret_cast<const xcb_key_press_event_t *>(event)->time;
    case XCB_PROPERTY_NOTIFY:
        return reinterpret_cast<const xcb_property_notify_event_t *>(event)->time;
    case XCB_GE_GENERIC: {
        const auto *generic = reinterpret_cast<const xcb_ge_generic_event_t *>(event);
        if (inputExtension == 0 || generic->extension != inputExtension)
            return XCB_CURRENT_TIME;
        // In every XInput event the timestamp follows the event type and the device id.
        xcb_timestamp_t time = XCB_CURRENT_TIME;
        std::memcpy(&time, reinterpret_cast<const char *>(event) + 12, sizeof time);
        return time;
    }
    default:
        return XCB_CURRENT_TIME;
    }
}

bool X11EventClock::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const xcb_timestamp_t time =
        timeOf(static_cast<const xcb_generic_event_t *>(message), m_inputExtension);
    // The server's 32-bit clock wraps around every 49.7 days, so compare by signed difference.
    if (time != XCB_CURRENT_TIME &&
        (m_lastTime == XCB_CURRENT_TIME || static_cast<qint32>(time - m_lastTime) > 0))
        m_lastTime = time;
    return false;
}

} // namespace quellora
