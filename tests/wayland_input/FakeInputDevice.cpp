#include "Device.h"

#ifdef QUELLORA_HAS_FAKE_INPUT
#include "protocols/fake-input.h"
#endif

namespace quellora {

#ifdef QUELLORA_HAS_FAKE_INPUT
namespace {

/// Takes the keyboard layout and the modifiers from the compositor.
class FakeInputDevice : public Device
{
public:
    explicit FakeInputDevice(org_kde_kwin_fake_input *input) : m_input(input)
    {
        org_kde_kwin_fake_input_authenticate(m_input, "tests", "tests");
    }
    ~FakeInputDevice() override { org_kde_kwin_fake_input_destroy(m_input); }

    void moveTo(int x, int y, int, int) override
    {
        org_kde_kwin_fake_input_pointer_motion_absolute(m_input, wl_fixed_from_double(x + 0.25),
                                                        wl_fixed_from_double(y + 0.25));
    }
    void moveBy(double dx, double dy) override
    {
        org_kde_kwin_fake_input_pointer_motion(m_input, wl_fixed_from_double(dx),
                                               wl_fixed_from_double(dy));
    }
    void button(uint32_t code, bool pressed) override
    {
        org_kde_kwin_fake_input_button(m_input, code, pressed);
    }
    void wheel(int steps) override
    {
        org_kde_kwin_fake_input_axis(m_input, WL_POINTER_AXIS_VERTICAL_SCROLL,
                                     wl_fixed_from_int(15 * steps));
    }
    void key(uint32_t code, bool pressed) override
    {
        org_kde_kwin_fake_input_keyboard_key(m_input, code, pressed);
    }

private:
    org_kde_kwin_fake_input *m_input;
};

} // namespace
#endif

std::unique_ptr<Device> makeFakeInputDevice([[maybe_unused]] const Global &fakeInput)
{
#ifdef QUELLORA_HAS_FAKE_INPUT
    // Version 4 has keys.
    if (fakeInput.registry)
        return std::make_unique<FakeInputDevice>(
            static_cast<org_kde_kwin_fake_input *>(wl_registry_bind(
                fakeInput.registry, fakeInput.name, &org_kde_kwin_fake_input_interface, 4)));
#endif
    return nullptr;
}

} // namespace quellora
