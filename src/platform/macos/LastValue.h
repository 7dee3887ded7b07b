#pragma once

#include <utility>

namespace quellora {

/// Remembers the last value of a setting, for notifications that do not tell what changed.
template <typename T>
class LastValue
{
public:
    explicit LastValue(T value) : m_value(std::move(value)) {}

    const T &value() const { return m_value; }
    /// @return whether @p value differs from the last one
    bool update(T value)
    {
        if (value == m_value)
            return false;
        m_value = std::move(value);
        return true;
    }

private:
    T m_value;
};

} // namespace quellora
