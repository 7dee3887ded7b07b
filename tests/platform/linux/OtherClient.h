#pragma once

#include <QList>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QStringList>

#include <xcb/xcb.h>

class QSocketNotifier;

namespace quellora {

/// Another program on the same desktop: a client with its own connection to the X server and, when
/// wanted, a window that notes what reaches it.
class OtherClient : public QObject
{
    Q_OBJECT
public:
    struct Key
    {
        int keycode;
        quint16 state;
        bool operator==(const Key &) const = default;
    };
    struct Button
    {
        int button;
        /// Position on the screen.
        QPoint position;
        bool operator==(const Button &) const = default;
    };

    OtherClient();
    ~OtherClient() override;

    /// Opens an ordinary window and waits until the window manager has given it the focus.
    bool openFocusedWindow(const QRect &geometry);
    void openWindow(const QRect &geometry);
    /// Gives the own window the focus, as it must where no window manager does.
    bool takeFocus();
    xcb_window_t window() const { return m_window; }
    void closeWindow();

    /// @return the X error code, 0 on success
    int grabKey(int keycode, quint16 modifiers);
    void ungrabKey(int keycode, quint16 modifiers);
    bool grabKeyboard();
    void ungrabKeyboard();
    /// Takes or gives up a selection, as a compositor does.
    void ownSelection(const QByteArray &name);
    void disownSelection(const QByteArray &name);
    /// Ends the connection like a crash would.
    void disconnectNow();

    xcb_window_t focusedWindow() const;
    /// Lock, Num Lock and the other modifiers in force.
    quint16 modifierState() const;
    /// The numbers of a property; atoms by name with atomNames().
    QList<quint32> property(xcb_window_t window, const QByteArray &name) const;
    QStringList atomNames(xcb_window_t window, const QByteArray &property) const;
    /// The rectangles of a window's input shape.
    QList<QRect> inputShape(xcb_window_t window) const;
    /// What the window manager manages, and task bars list.
    QList<quint32> managedWindows() const;
    bool isViewable(xcb_window_t window) const;
    /// Whether a window lies above another one of the screen.
    bool isAbove(xcb_window_t upper, xcb_window_t lower) const;
    bool currentDesktopIs(quint32 number) const;
    /// Asks the window manager to make the own window fill the screen.
    void makeFullScreen();
    QRect screenGeometry(xcb_window_t window) const;
    xcb_window_t root() const { return m_root; }

    /// What reached the window since it was opened or since forget().
    QList<Key> keys();
    QList<Button> buttons();
    /// How often the focus went elsewhere; the moment of a key grab does not count.
    int focusLosses();
    void forget();

private:
    void readEvents();
    void handle(const xcb_generic_event_t *event);
    /// The window of the screen itself that a window is in: its frame, or it.
    xcb_window_t outermost(xcb_window_t window) const;
    xcb_atom_t atom(const QByteArray &name) const;

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    xcb_window_t m_window = XCB_NONE;
    QSocketNotifier *m_notifier = nullptr;
    QList<Key> m_keys;
    QList<Button> m_buttons;
    int m_focusLosses = 0;
};

} // namespace quellora
