#pragma once

#include <utility>

namespace quellora {

/// Remembers what the system last answered, for those of its notifications that say "look again"
/// rather than "this changed".
template <typename T>
class LastAnswer
{
public:
    explicit LastAnswer(T answer) : m_answer(std::move(answer)) {}

    const T &value() const { return m_answer; }
    /// @return whether @p answer is another one than the last
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
