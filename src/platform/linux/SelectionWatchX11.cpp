#include "platform/linux/SelectionWatchX11.h"

#include <QGuiApplication>

#include <xcb/xfixes.h>

namespace quellora {

SelectionWatchX11::SelectionWatchX11(const X11Connection &x11, const QByteArray &name)
    : m_x11(x11)
    , m_selection(x11.atom(name + QByteArray::number(x11.screenNumber())))
    , m_firstEvent(x11.firstEvent(&xcb_xfixes_id))
{
    if (m_firstEvent != 0) {
        // The extension rejects other requests until the version has been negotiated.
        const XcbPtr<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
            x11.get(), xcb_xfixes_query_version(x11.get(), 5, 0), nullptr));
        xcb_xfixes_select_selection_input(
            x11.get(), x11.root(), m_selection,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    }
    const XcbPtr<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        x11.get(), xcb_get_selection_owner(x11.get(), m_selection), nullptr));
    m_owned = owner && owner->owner != XCB_NONE;
    qGuiApp->installNativeEventFilter(this);
}

bool SelectionWatchX11::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (m_firstEvent == 0 || eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & ~0x80) != m_firstEvent + XCB_XFIXES_SELECTION_NOTIFY)
        return false;
    const auto *notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t *>(event);
    if (notify->selection != m_selection)
        return false;
    // Events for a closed or destroyed owner still contain its former window.
    const bool owned = notify->subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER &&
                       notify->owner != XCB_NONE;
    if (owned != m_owned) {
        m_owned = owned;
        if (m_handler)
            m_handler();
    }
    return false;
}

} // namespace quellora
