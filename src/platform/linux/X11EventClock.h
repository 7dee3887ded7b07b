#pragma once

#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>

namespace quellora {

/// Remembers the newest event timestamp from the X server, so that focus requests can carry the
/// timestamp of the user action that caused them. Main thread only.
class X11EventClock : public QAbstractNativeEventFilter
{
public:
    explicit X11EventClock(const X11Connection &x11);

    /// Milliseconds of the server's clock; XCB_CURRENT_TIME if no event had a timestamp yet.
    xcb_timestamp_t lastTime() const { return m_lastTime; }

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

    /// The timestamp of an event; XCB_CURRENT_TIME if it has none.
    /// @param inputExtension major opcode of the XInput extension; 0 if the server lacks it
    static xcb_timestamp_t timeOf(const xcb_generic_event_t *event, quint8 inputExtension);

private:
    quint8 m_inputExtension = 0;
    xcb_timestamp_t m_lastTime = XCB_CURRENT_TIME;
};

} // namespace quellora
