#pragma once

#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>

namespace quellora {

/// Remembers the X server's time of the newest event that carried one, so that focus requests
/// can name the user action they follow.
class X11EventClock : public QAbstractNativeEventFilter
{
public:
    explicit X11EventClock(const X11Connection &x11);

    /// Milliseconds of the server's clock; XCB_CURRENT_TIME while no event told the time.
    xcb_timestamp_t lastTime() const { return m_lastTime; }

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

    /// The time carried by an event; XCB_CURRENT_TIME when it has none.
    /// @param inputExtension major opcode of the input extension; 0 when there is none
    static xcb_timestamp_t timeOf(const xcb_generic_event_t *event, quint8 inputExtension);

private:
    quint8 m_inputExtension = 0;
    xcb_timestamp_t m_lastTime = XCB_CURRENT_TIME;
};

} // namespace quellora
