#pragma once

#include <utility>

namespace quellora {

/// Remembers the last value of a setting, for notifications that do not tell what changed.
template <typename T>
class LastAnswer
{
public:
    explicit LastAnswer(T answer) : m_answer(std::move(answer)) {}

    const T &value() const { return m_answer; }
    /// @return whether @p answer differs from the last one
    bool update(T answer)
    {
        if (answer == m_answer)
            return false;
        m_answer = std::move(answer);
        return true;
    }

private:
    T m_answer;
};

} // namespace quellora
