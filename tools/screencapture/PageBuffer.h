#pragma once

#include <cstddef>

namespace quellora::screencapture {

/// Uninitialised memory for pictures, in huge pages where the system gives them: a fresh picture
/// of 4K in ordinary pages costs more in page faults than everything else that is done with it.
class PageBuffer
{
public:
    PageBuffer() = default;
    ~PageBuffer();
    PageBuffer(const PageBuffer &) = delete;
    PageBuffer &operator=(const PageBuffer &) = delete;

    /// Memory of at least @p length bytes; the former contents may be gone. Throws std::bad_alloc.
    std::byte *resize(std::size_t length);

private:
    void release();

    void *m_mapping = nullptr;
    std::size_t m_mappingLength = 0;
    std::byte *m_data = nullptr;
    std::size_t m_length = 0;
};

} // namespace quellora::screencapture
