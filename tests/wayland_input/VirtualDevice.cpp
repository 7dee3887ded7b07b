#include "Device.h"

#include "protocols/virtual-keyboard.h"
#include "protocols/virtual-pointer.h"

#include <sys/mman.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

namespace quellora {
namespace {

// The difference between the codes of the kernel and of XKB.
constexpr uint32_t xkbOffset = 8;

uint32_t now()
{
    using namespace std::chrono;
    return static_cast<uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

/// A US keyboard; the compositor takes the modifiers from its client, not from the keys.
class VirtualDevice : public Device
{
public:
    VirtualDevice(zwlr_virtual_pointer_v1 *pointer, zwp_virtual_keyboard_v1 *keyboard)
        : m_pointer(pointer), m_keyboard(keyboard), m_context(xkb_context_new(XKB_CONTEXT_NO_FLAGS))
    {
        xkb_rule_names names{};
        names.layout = "us";
        m_keymap = xkb_keymap_new_from_names(m_context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        m_state = xkb_state_new(m_keymap);
        char *text = xkb_keymap_get_as_string(m_keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
        const size_t size = std::strlen(text) + 1;
        const int file = memfd_create("keymap", MFD_CLOEXEC);
        if (write(file, text, size) != static_cast<ssize_t>(size))
            std::abort();
        zwp_virtual_keyboard_v1_keymap(m_keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, file,
                                       static_cast<uint32_t>(size));
        close(file);
        std::free(text);
    }
    ~VirtualDevice() override
    {
        zwlr_virtual_pointer_v1_destroy(m_pointer);
        zwp_virtual_keyboard_v1_destroy(m_keyboard);
        xkb_state_unref(m_state);
        xkb_keymap_unref(m_keymap);
        xkb_context_unref(m_context);
    }

    void moveTo(int x, int y, int width, int height) override
    {
        // Just inside the pixel: neither of the roundings of its clients leads into a neighbour.
        zwlr_virtual_pointer_v1_motion_absolute(
            m_pointer, now(), static_cast<uint32_t>(4 * x + 1), static_cast<uint32_t>(4 * y + 1),
            static_cast<uint32_t>(4 * width), static_cast<uint32_t>(4 * height));
        zwlr_virtual_pointer_v1_frame(m_pointer);
    }
    void moveBy(double dx, double dy) override
    {
        zwlr_virtual_pointer_v1_motion(m_pointer, now(), wl_fixed_from_double(dx),
                                       wl_fixed_from_double(dy));
        zwlr_virtual_pointer_v1_frame(m_pointer);
    }
    void button(uint32_t code, bool pressed) override
    {
        zwlr_virtual_pointer_v1_button(m_pointer, now(), code, pressed);
        zwlr_virtual_pointer_v1_frame(m_pointer);
    }
    void wheel(int steps) override
    {
        zwlr_virtual_pointer_v1_axis_source(m_pointer, WL_POINTER_AXIS_SOURCE_WHEEL);
        zwlr_virtual_pointer_v1_axis_discrete(m_pointer, now(), WL_POINTER_AXIS_VERTICAL_SCROLL,
                                              wl_fixed_from_int(15 * steps), steps);
        zwlr_virtual_pointer_v1_frame(m_pointer);
    }
    void key(uint32_t code, bool pressed) override
    {
        zwp_virtual_keyboard_v1_key(m_keyboard, now(), code, pressed);
        xkb_state_update_key(m_state, code + xkbOffset, pressed ? XKB_KEY_DOWN : XKB_KEY_UP);
        zwp_virtual_keyboard_v1_modifiers(
            m_keyboard, xkb_state_serialize_mods(m_state, XKB_STATE_MODS_DEPRESSED),
            xkb_state_serialize_mods(m_state, XKB_STATE_MODS_LATCHED),
            xkb_state_serialize_mods(m_state, XKB_STATE_MODS_LOCKED), 0);
    }

private:
    zwlr_virtual_pointer_v1 *m_pointer;
    zwp_virtual_keyboard_v1 *m_keyboard;
    xkb_context *m_context;
    xkb_keymap *m_keymap = nullptr;
    xkb_state *m_state = nullptr;
};

template <typename Proxy>
Proxy *bind(const Global &global, const wl_interface &interface)
{
    return static_cast<Proxy *>(wl_registry_bind(global.registry, global.name, &interface, 1));
}

} // namespace

std::unique_ptr<Device> makeVirtualDevice(const Global &pointerManager,
                                          const Global &keyboardManager, wl_seat *seat)
{
    if (!pointerManager.registry || !keyboardManager.registry || !seat)
        return nullptr;
    auto *pointers = bind<zwlr_virtual_pointer_manager_v1>(
        pointerManager, zwlr_virtual_pointer_manager_v1_interface);
    auto *keyboards = bind<zwp_virtual_keyboard_manager_v1>(
        keyboardManager, zwp_virtual_keyboard_manager_v1_interface);
    return std::make_unique<VirtualDevice>(
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(pointers, seat),
        zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(keyboards, seat));
}

} // namespace quellora
