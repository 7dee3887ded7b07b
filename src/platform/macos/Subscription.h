#pragma once

#include <functional>
#include <utility>

namespace quellora {

/// Something of the system's that goes on until this object ends it: an observer, an event
/// monitor. Movable; ends what it held when it is destroyed, replaced or reset. Main thread only.
class Subscription
{
public:
    Subscription() = default;
    /// @param end called once; must not throw
    explicit Subscription(std::function<void()> end) : m_end(std::move(end)) {}
    Subscription(Subscription &&other) noexcept : m_end(std::exchange(other.m_end, nullptr)) {}
    Subscription &operator=(Subscription &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_end = std::exchange(other.m_end, nullptr);
        }
        return *this;
    }
    ~Subscription() { reset(); }

    bool isActive() const { return m_end != nullptr; }
    void reset()
    {
        // Out of the member first: what ends may look at this object.
        if (const auto end = std::exchange(m_end, nullptr))
            end();
    }

private:
    std::function<void()> m_end;
};

} // namespace quellora
