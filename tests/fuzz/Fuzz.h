#pragma once

#include <simdjson.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

/// Called with each input by libFuzzer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace quellora::fuzz {

/// Ends the run as a finding when what must always hold does not.
inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

inline std::string_view view(const std::uint8_t *data, std::size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

/// Whether @p text is valid UTF-8, by another reader than the one under test.
inline bool isUtf8(const std::string &text)
{
    return simdjson::validate_utf8(text);
}

/// Takes decisions from the beginning of an input.
class Choices
{
public:
    explicit Choices(std::string_view bytes) : m_bytes(bytes) {}

    /// A byte, 0 at the end.
    std::uint8_t byte()
    {
        if (m_bytes.empty())
            return 0;
        const auto value = static_cast<std::uint8_t>(m_bytes.front());
        m_bytes.remove_prefix(1);
        return value;
    }
    /// What is left.
    std::string_view rest() const { return m_bytes; }

private:
    std::string_view m_bytes;
};

} // namespace quellora::fuzz
