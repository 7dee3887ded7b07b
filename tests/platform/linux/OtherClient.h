#pragma once

#include <QList>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QStringList>

#include <xcb/xcb.h>

class QSocketNotifier;

namespace quellora {

/// Another program on the same desktop: a client with its own connection to the X server and
/// optionally a window that records its input events. Main thread only.
class OtherClient : public QObject
{
    Q_OBJECT
public:
    struct Key
    {
        int keycode = 0;
        quint16 state = 0;
        bool operator==(const Key &) const = default;
    };
    struct Button
    {
        int button = 0;
        /// Screen position in pixels.
        QPoint position;
        bool operator==(const Button &) const = default;
    };

    OtherClient();
    ~OtherClient() override;

    /// Opens a normal window and waits until the window manager has focused it.
    bool openFocusedWindow(const QRect &geometry);
    void openWindow(const QRect &geometry);
    /// Focuses its window, for servers without a window manager.
    bool takeFocus();
    xcb_window_t window() const { return m_window; }
    void closeWindow();

    /// @return the X error code, 0 on success
    int grabKey(int keycode, quint16 modifiers);
    void ungrabKey(int keycode, quint16 modifiers);
    bool grabKeyboard();
    void ungrabKeyboard();
    /// Acquires or releases a selection, as a compositor does.
    void ownSelection(const QByteArray &name);
    void disownSelection(const QByteArray &name);
    /// Closes the connection, as a crash would.
    void disconnectNow();

    xcb_window_t focusedWindow() const;
    /// The current modifier mask, including Caps Lock and Num Lock.
    quint16 modifierState() const;
    /// The 32-bit values of a property; empty if it does not exist.
    QList<quint32> property(xcb_window_t window, const QByteArray &name) const;
    /// The names of the atoms in a property.
    QStringList atomNames(xcb_window_t window, const QByteArray &name) const;
    /// The rectangles of a window's input shape.
    QList<QRect> inputShape(xcb_window_t window) const;
    /// The windows managed by the window manager and listed by task bars.
    QList<quint32> managedWindows() const;
    bool isViewable(xcb_window_t window) const;
    /// Whether a window is stacked above another one.
    bool isAbove(xcb_window_t upper, xcb_window_t lower) const;
    bool currentDesktopIs(quint32 number) const;
    /// Asks the window manager to make its window full-screen.
    void makeFullScreen();
    /// In pixels, without the frame.
    QRect screenGeometry(xcb_window_t window) const;
    xcb_window_t root() const { return m_root; }

    /// Input received by the window since it was opened or since clearInput().
    QList<Key> keys();
    QList<Button> buttons();
    /// How often the window lost the focus, not counting key grabs.
    int focusLosses();
    void clearInput();

private:
    void readEvents();
    void handle(const xcb_generic_event_t *event);
    /// The ancestor that is a child of the root window: the frame, or the window itself.
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
