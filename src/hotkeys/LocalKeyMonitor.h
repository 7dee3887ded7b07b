#pragma once

#include "platform/Platform.h"

#include <functional>

namespace quellora {

/// Takes over the key presses of the program's own window. Main thread only.
class LocalKeyMonitor
{
public:
    virtual ~LocalKeyMonitor() = default;

    /// Sends every key press to @p onKeyDown only.
    /// @param onLost called when another program gets the keyboard and no press will come
    ///
    /// Both functions may call remove().
    virtual void install(std::function<void(const KeyDown &)> onKeyDown,
                         std::function<void()> onLost) = 0;
    /// Without effect when not installed.
    virtual void remove() = 0;
};

} // namespace quellora
