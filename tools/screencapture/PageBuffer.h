#pragma once

#include <cstddef>

namespace quellora::screencapture {

/// Uninitialised memory for pictures, in huge pages where available: the page faults of a 4K
/// picture in ordinary pages cost more than all processing of it.
class PageBuffer
{
public:
    PageBuffer() = default;
    ~PageBuffer();
    PageBuffer(const PageBuffer &) = delete;
    PageBuffer &operator=(const PageBuffer &) = delete;

    /// Memory of at least @p length bytes; may discard the contents. Throws std::bad_alloc.
    std::byte *resize(std::size_t length);

private:
    void release();

    void *m_mapping = nullptr;
    std::size_t m_mappingLength = 0;
    std::byte *m_data = nullptr;
    std::size_t m_length = 0;
};

} // namespace quellora::screencapture
