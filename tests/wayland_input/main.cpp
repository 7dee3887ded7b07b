// Plays the user of a private Wayland desktop. Reads one command per line from standard input and
// answers each with "ok" or the problem, once the compositor has taken it:
//
//   size WIDTH HEIGHT   of the whole desktop, in logical pixels; before the first "to"
//   to X Y              moves the pointer there
//   by DX DY            moves the pointer by an offset
//   button CODE 0|1     releases or presses a button
//   wheel STEPS         turns the wheel, down if positive
//   key CODE 0|1        releases or presses a key
//   picture N FILE      writes the picture of an output as PPM (wlroots only)

#include "Device.h"
#include "Screens.h"

#include <iostream>
#include <map>
#include <sstream>

using namespace quellora;

namespace {

struct Registry
{
    std::map<std::string, Global> globals;
    std::vector<Global> outputs;
};

const wl_registry_listener registryListener{
    [](void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t) {
        auto *found = static_cast<Registry *>(data);
        const Global global{registry, name, interface};
        if (global.interface == wl_output_interface.name)
            found->outputs.push_back(global);
        else
            found->globals.try_emplace(global.interface, global);
    },
    [](void *, wl_registry *, uint32_t) {},
};

template <typename Proxy>
Proxy *bind(const Global &global, const wl_interface &interface)
{
    return global.registry
               ? static_cast<Proxy *>(wl_registry_bind(global.registry, global.name, &interface, 1))
               : nullptr;
}

class User
{
public:
    explicit User(wl_display *display) : m_display(display), m_screens(display)
    {
        wl_registry *registry = wl_display_get_registry(display);
        wl_registry_add_listener(registry, &registryListener, &m_registry);
        wl_display_roundtrip(display);
        auto &globals = m_registry.globals;
        m_device = makeVirtualDevice(globals["zwlr_virtual_pointer_manager_v1"],
                                     globals["zwp_virtual_keyboard_manager_v1"],
                                     bind<wl_seat>(globals["wl_seat"], wl_seat_interface));
        if (!m_device)
            m_device = makeFakeInputDevice(globals["org_kde_kwin_fake_input"]);
        if (const Global &global = globals["zwlr_screencopy_manager_v1"]; global.registry)
            m_screens.setManager(global);
        m_screens.setSharedMemory(bind<wl_shm>(globals["wl_shm"], wl_shm_interface));
        wl_display_roundtrip(display);
    }

    bool hasDevice() const { return m_device != nullptr; }

    /// Carries out one command; returns what went wrong, empty on success.
    std::string obey(const std::string &line)
    {
        std::istringstream words(line);
        std::string command;
        words >> command;
        double first = 0;
        double second = 0;
        if (command == "picture")
            return takePicture(words);
        words >> first;
        if (command != "wheel")
            words >> second;
        if (words.fail())
            return "not understood: " + line;
        const auto code = static_cast<uint32_t>(first);
        if (command == "size") {
            m_width = static_cast<int>(first);
            m_height = static_cast<int>(second);
        } else if (command == "to") {
            m_device->moveTo(static_cast<int>(first), static_cast<int>(second), m_width, m_height);
        } else if (command == "by") {
            m_device->moveBy(first, second);
        } else if (command == "button") {
            m_device->button(code, second > 0);
        } else if (command == "wheel") {
            m_device->wheel(static_cast<int>(first));
        } else if (command == "key") {
            m_device->key(code, second > 0);
        } else {
            return "not understood: " + line;
        }
        return wl_display_roundtrip(m_display) < 0 ? "the compositor is gone" : "";
    }

private:
    std::string takePicture(std::istringstream &words)
    {
        size_t number = 0;
        std::string path;
        words >> number >> path;
        // Outputs come and go: those that were announced since are bound now.
        wl_display_roundtrip(m_display);
        for (; m_bound < m_registry.outputs.size(); ++m_bound)
            m_screens.addOutput(bind<wl_output>(m_registry.outputs[m_bound], wl_output_interface));
        return words.fail() ? "no file" : m_screens.save(number, path);
    }

    wl_display *m_display;
    Registry m_registry;
    Screens m_screens;
    std::unique_ptr<Device> m_device;
    size_t m_bound = 0;
    int m_width = 1;
    int m_height = 1;
};

} // namespace

int main()
{
    wl_display *display = wl_display_connect(nullptr);
    if (!display) {
        std::cout << "there is no compositor" << std::endl;
        return 1;
    }
    User user(display);
    if (!user.hasDevice()) {
        std::cout << "the compositor accepts no input" << std::endl;
        return 1;
    }
    std::cout << "ok" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        const std::string problem = user.obey(line);
        std::cout << (problem.empty() ? "ok" : problem) << std::endl;
    }
    return 0;
}
