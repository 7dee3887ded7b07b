#pragma once

#include <functional>
#include <utility>

namespace quellora {

/// Owns an observer or event monitor and removes it when destroyed, replaced or reset. Movable.
/// Main thread only.
class Subscription
{
public:
    Subscription() = default;
    /// @param end removes it; called once; must not throw
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
        // Cleared first: the function may query this object.
        if (const auto end = std::exchange(m_end, nullptr))
            end();
    }

private:
    std::function<void()> m_end;
};

} // namespace quellora
