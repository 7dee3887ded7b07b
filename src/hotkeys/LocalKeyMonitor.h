#pragma once

#include "platform/Platform.h"

#include <functional>

namespace quellora {

/// Takes the keyboard of the program's own window for a while. Main thread only.
class LocalKeyMonitor
{
public:
    virtual ~LocalKeyMonitor() = default;

    /// From now on every key press goes to @p onKeyDown and nowhere else.
    /// @param onLost the keyboard has gone to another program, so that no press will come. Either
    ///        function may call remove().
    virtual void install(std::function<void(const KeyDown &)> onKeyDown,
                         std::function<void()> onLost) = 0;
    /// Ends it; without effect when not installed.
    virtual void remove() = 0;
};

} // namespace quellora
