#pragma once

#include <wayland-client.h>

#include <memory>
#include <string>

namespace quellora {

/// A keyboard and a pointer that a compositor lets a client play. Requests are only queued; the
/// caller waits for the compositor.
class Device
{
public:
    virtual ~Device() = default;
    /// @param x, y in the desktop's logical pixels
    /// @param width, height of the whole desktop
    virtual void moveTo(int x, int y, int width, int height) = 0;
    virtual void moveBy(double dx, double dy) = 0;
    /// @param code a button of linux/input-event-codes.h
    virtual void button(uint32_t code, bool pressed) = 0;
    /// Turns the wheel; positive steps scroll down.
    virtual void wheel(int steps) = 0;
    /// @param code a key of linux/input-event-codes.h
    virtual void key(uint32_t code, bool pressed) = 0;
};

/// A global of the compositor, as the registry announced it.
struct Global
{
    wl_registry *registry = nullptr;
    uint32_t name = 0;
    std::string interface;
};

/// Devices of wlroots compositors; null unless all globals are there.
std::unique_ptr<Device> makeVirtualDevice(const Global &pointerManager,
                                          const Global &keyboardManager, wl_seat *seat);
/// KWin's device; null without the global, or if built without its protocol.
std::unique_ptr<Device> makeFakeInputDevice(const Global &fakeInput);

} // namespace quellora
