#pragma once

#include "Device.h"

#include <functional>
#include <string>
#include <vector>

struct zwlr_screencopy_manager_v1;

namespace quellora {

/// Pictures of the outputs as the compositor shows them (wlroots only).
class Screens
{
public:
    explicit Screens(wl_display *display) : m_display(display) {}

    void setManager(const Global &global);
    void setSharedMemory(wl_shm *memory) { m_memory = memory; }
    void addOutput(wl_output *output) { m_outputs.push_back(output); }

    /// Writes a PPM file of the output with this number, in the order of their announcement.
    /// @return what went wrong; empty on success
    std::string save(size_t output, const std::string &path);

private:
    wl_display *m_display;
    zwlr_screencopy_manager_v1 *m_manager = nullptr;
    wl_shm *m_memory = nullptr;
    std::vector<wl_output *> m_outputs;
};

} // namespace quellora
