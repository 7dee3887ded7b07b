#pragma once

#include "platform/linux/KeyLayoutX11.h"
#include "platform/wayland/WaylandConnection.h"

#include <QByteArray>
#include <QHash>
#include <QMetaType>
#include <QObject>
#include <QString>

// A parameter of signals.
Q_DECLARE_OPAQUE_POINTER(wl_surface *)

namespace quellora {

/// The session's keyboard beside the toolkit's: its layout, and which of this program's surfaces
/// has it. The toolkit merges a loss of the focus with a return that follows at once; here both are
/// told. Main thread only.
class WaylandKeyboard : public QObject
{
    Q_OBJECT
public:
    explicit WaylandKeyboard(const WaylandConnection &connection, QObject *parent = nullptr);
    ~WaylandKeyboard() override;

    /// The surface of this program that has the keyboard; null if none.
    wl_surface *focus() const { return m_focus; }
    /// The character by which a physical key is registered in the current layout; empty for keys
    /// that cannot be bound.
    QString keyName(quint32 nativeScanCode) const;

    /// The keys of a keymap in the text format that compositors send; none if it is malformed.
    static QHash<xcb_keycode_t, KeyLayoutX11::Symbols> keys(const QByteArray &keymap);

Q_SIGNALS:
    void entered(wl_surface *surface);
    void left(wl_surface *surface);

private:
    struct Listeners;
    void follow();

    const WaylandConnection &m_connection;
    WaylandPtr<wl_keyboard> m_keyboard;
    wl_surface *m_focus = nullptr;
    QByteArray m_keymap;
};

} // namespace quellora
