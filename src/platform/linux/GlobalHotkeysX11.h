#pragma once

#include "platform/Platform.h"
#include "platform/linux/KeyLayoutX11.h"
#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>
#include <QList>
#include <QMap>
#include <QTimer>

namespace quellora {

/// Hot keys as passive key grabs on the root window, one grab for each combination of Caps Lock and
/// Num Lock; a hot key gets all of its grabs or none.
///
/// Failure::status is the X error code: 10 (BadAccess) if the combination is already grabbed by
/// this or another program, 2 (BadValue) if the key does not exist. Key repeats are dropped. When
/// the keyboard mapping changes, all keys are looked up and grabbed again; a hot key whose new
/// combination is taken logs one line and stays inactive until the next change. Main thread only;
/// destroy before the application object.
class GlobalHotkeysX11 : public GlobalHotkeys, public QAbstractNativeEventFilter
{
public:
    explicit GlobalHotkeysX11(const X11Connection &x11);
    ~GlobalHotkeysX11() override;

    void installHandler(std::function<void(Registration)> onPress) override;
    void removeHandler() override;
    Result registerHotkey(QKeyCombination combo) override;
    void unregisterHotkey(Registration registration) override;
    /// The character by which a physical key is registered in the current layout; empty for keys
    /// that cannot be bound.
    QString keyName(quint32 nativeScanCode) const;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

    /// The key code grabbed for a registration; 0 if none.
    xcb_keycode_t grabbedKeycode(Registration registration) const;

private:
    struct Binding
    {
        QKeyCombination combo;
        xcb_keycode_t keycode = 0;
        /// X modifier bits without Caps Lock and Num Lock.
        quint16 bits = 0;
        /// The grabbed combinations of Caps Lock and Num Lock bits; empty while the hot key is
        /// inactive.
        QList<quint16> variants;
    };

    tl::expected<void, Failure> grab(Binding &binding);
    void ungrab(Binding &binding);
    void handleKeyPress(const xcb_key_press_event_t &event);
    bool isMappingChange(const xcb_generic_event_t *event) const;
    void applyMappingChange();

    X11Connection m_x11;
    KeyLayoutX11 m_layout;
    quint8 m_xkbFirstEvent;
    std::function<void(Registration)> m_onPress;
    QMap<Registration, Binding> m_bindings;
    Registration m_lastRegistration = 0;
    xcb_timestamp_t m_lastPressTime = XCB_CURRENT_TIME;
    xcb_keycode_t m_lastReleasedKey = 0;
    xcb_timestamp_t m_lastReleaseTime = XCB_CURRENT_TIME;
    /// Debounces the burst of events that one mapping change causes.
    QTimer m_mappingTimer;
};

} // namespace quellora
