#pragma once

#include <QString>

#include <functional>

namespace quellora {

/// One key going down, as the recorder of a new combo sees it.
struct KeyDown
{
    /// Combination of GlobalHotkeys::Modifier flags that are held.
    quint32 modifiers = 0;
    /// What the key writes in the current layout without any modifier; empty when nothing.
    QString character;
    bool isEscape = false;
};

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
