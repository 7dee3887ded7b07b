#include "platform/linux/GlobalHotkeysX11.h"

#include "base/Log.h"

#include <QGuiApplication>

#include <X11/extensions/XKB.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <utility>

namespace quellora {
namespace {

// In milliseconds; the fastest key repeat is about 10.
constexpr xcb_timestamp_t shortestRepeat = 8;

/// First event code of the XKB extension; 0 if the server lacks it.
quint8 xkbFirstEvent(const X11Connection &x11)
{
    quint8 first = 0;
    xkb_x11_setup_xkb_extension(x11.get(), XKB_X11_MIN_MAJOR_XKB_VERSION,
                                XKB_X11_MIN_MINOR_XKB_VERSION, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS,
                                nullptr, nullptr, &first, nullptr);
    return first;
}

} // namespace

GlobalHotkeysX11::GlobalHotkeysX11(const X11Connection &x11)
    : m_x11(x11), m_layout(KeyLayoutX11::read(x11)), m_xkbFirstEvent(xkbFirstEvent(x11))
{
    m_mappingTimer.setSingleShot(true);
    m_mappingTimer.setInterval(0);
    m_mappingTimer.callOnTimeout([this] { applyMappingChange(); });
    qGuiApp->installNativeEventFilter(this);
}

GlobalHotkeysX11::~GlobalHotkeysX11()
{
    for (Binding &binding : m_bindings)
        ungrab(binding);
    m_x11.flush();
}

void GlobalHotkeysX11::installHandler(std::function<void(Registration)> onPress)
{
    m_onPress = std::move(onPress);
}

void GlobalHotkeysX11::removeHandler()
{
    m_onPress = nullptr;
}

GlobalHotkeys::Result GlobalHotkeysX11::registerHotkey(QKeyCombination combo)
{
    Binding binding;
    binding.combo = combo;
    if (const auto grabbed = grab(binding); !grabbed)
        return tl::unexpected(grabbed.error());
    const Registration registration = ++m_lastRegistration;
    m_bindings.insert(registration, binding);
    return registration;
}

void GlobalHotkeysX11::unregisterHotkey(Registration registration)
{
    const auto found = m_bindings.find(registration);
    if (found == m_bindings.end())
        return;
    ungrab(*found);
    m_x11.flush();
    m_bindings.erase(found);
}

QString GlobalHotkeysX11::keyName(quint32 nativeScanCode) const
{
    return m_layout.keyName(nativeScanCode);
}

xcb_keycode_t GlobalHotkeysX11::grabbedKeycode(Registration registration) const
{
    const auto found = m_bindings.constFind(registration);
    return found == m_bindings.constEnd() || found->variants.isEmpty() ? xcb_keycode_t(0)
                                                                       : found->keycode;
}

tl::expected<void, GlobalHotkeys::Failure> GlobalHotkeysX11::grab(Binding &binding)
{
    const auto keycode = m_layout.keycode(binding.combo.key());
    if (!keycode)
        return tl::unexpected(Failure{Failure::Kind::UnsupportedKey, XCB_VALUE});
    const quint16 bits = m_layout.modifierBits(binding.combo.keyboardModifiers());
    // The server lets a client grab the same combination twice, and only one binding would fire.
    for (const Binding &other : std::as_const(m_bindings)) {
        if (&other != &binding && !other.variants.isEmpty() && other.keycode == *keycode &&
            other.bits == bits)
            return tl::unexpected(Failure{Failure::Kind::Taken, XCB_ACCESS});
    }
    binding.keycode = *keycode;
    binding.bits = bits;

    QList<std::pair<quint16, xcb_void_cookie_t>> requests;
    const QList<quint16> variants = m_layout.lockVariants();
    for (const quint16 variant : variants) {
        // With owner_events off, presses are reported on the root window even if one of this
        // program's windows has the focus.
        requests.append(
            {variant, xcb_grab_key_checked(m_x11.get(), 0, m_x11.root(),
                                           static_cast<uint16_t>(bits | variant), *keycode,
                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)});
    }
    int status = 0;
    for (const auto &[variant, cookie] : std::as_const(requests)) {
        const XcbPtr<xcb_generic_error_t> error(xcb_request_check(m_x11.get(), cookie));
        if (!error)
            binding.variants.append(variant);
        else if (status == 0)
            status = error->error_code;
    }
    if (status == 0)
        return {};
    ungrab(binding);
    m_x11.flush();
    return tl::unexpected(
        Failure{status == XCB_ACCESS ? Failure::Kind::Taken : Failure::Kind::Unavailable, status});
}

void GlobalHotkeysX11::ungrab(Binding &binding)
{
    for (const quint16 variant : std::as_const(binding.variants))
        xcb_ungrab_key(m_x11.get(), binding.keycode, m_x11.root(),
                       static_cast<uint16_t>(binding.bits | variant));
    binding.variants.clear();
}

bool GlobalHotkeysX11::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    switch (event->response_type & ~0x80) {
    case XCB_KEY_PRESS: {
        const auto *press = reinterpret_cast<const xcb_key_press_event_t *>(event);
        if (press->event != m_x11.root())
            return false;
        handleKeyPress(*press);
        return true;
    }
    case XCB_KEY_RELEASE: {
        const auto *release = reinterpret_cast<const xcb_key_release_event_t *>(event);
        // Tracked for all windows: while a newly recorded combination is still held, its repeated
        // presses go to the new grab but their releases to the focused window.
        m_lastReleasedKey = release->detail;
        m_lastReleaseTime = release->time;
        return release->event == m_x11.root();
    }
    default:
        if (isMappingChange(event))
            m_mappingTimer.start();
        return false;
    }
}

void GlobalHotkeysX11::handleKeyPress(const xcb_key_press_event_t &event)
{
    // A key repeat is a release and a press with the same timestamp. Injected presses may also
    // share a timestamp, but follow the previous press faster than any repeat rate.
    const bool isRepeat = event.detail == m_lastReleasedKey && event.time == m_lastReleaseTime &&
                          event.time - m_lastPressTime >= shortestRepeat;
    m_lastPressTime = event.time;
    if (isRepeat)
        return;
    const quint16 bits = m_layout.relevantState(event.state);
    for (auto it = m_bindings.cbegin(); it != m_bindings.cend(); ++it) {
        if (it->variants.isEmpty() || it->keycode != event.detail || it->bits != bits)
            continue;
        // Copies: the handler may remove itself or the binding.
        const Registration pressed = it.key();
        if (const auto onPress = m_onPress)
            onPress(pressed);
        return;
    }
}

bool GlobalHotkeysX11::isMappingChange(const xcb_generic_event_t *event) const
{
    const int type = event->response_type & ~0x80;
    if (type == XCB_MAPPING_NOTIFY)
        return reinterpret_cast<const xcb_mapping_notify_event_t *>(event)->request !=
               XCB_MAPPING_POINTER;
    if (m_xkbFirstEvent == 0 || type != m_xkbFirstEvent)
        return false;
    // All XKB events share one code; the XKB type is in the detail byte.
    const quint8 kind = event->pad0;
    return kind == XkbNewKeyboardNotify || kind == XkbMapNotify;
}

void GlobalHotkeysX11::applyMappingChange()
{
    const KeyLayoutX11 previous = std::exchange(m_layout, KeyLayoutX11::read(m_x11));
    const bool sameLocks = previous.lockVariants() == m_layout.lockVariants();
    QList<Binding *> changed;
    for (Binding &binding : m_bindings) {
        const bool isUnchanged =
            sameLocks && !binding.variants.isEmpty() &&
            m_layout.keycode(binding.combo.key()) == binding.keycode &&
            m_layout.modifierBits(binding.combo.keyboardModifiers()) == binding.bits;
        if (!isUnchanged)
            changed.append(&binding);
    }
    // Release all first: a binding may move to the previous combination of another.
    for (Binding *binding : std::as_const(changed))
        ungrab(*binding);
    for (Binding *binding : std::as_const(changed)) {
        if (const auto grabbed = grab(*binding); !grabbed)
            Log::event(QStringLiteral("[GlobalHotkeys] WARNING: Key '%1' is not available in the "
                                      "new keyboard layout (X error %2)")
                           .arg(QChar(binding->combo.key()).toLower())
                           .arg(grabbed.error().status));
    }
    m_x11.flush();
}

} // namespace quellora
