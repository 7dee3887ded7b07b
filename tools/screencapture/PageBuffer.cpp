#include "PageBuffer.h"

#include <cstdint>
#include <new>

#include <sys/mman.h>

namespace quellora::screencapture {

namespace {

constexpr std::size_t hugePageLength = 2 * 1024 * 1024;

} // namespace

PageBuffer::~PageBuffer()
{
    release();
}

void PageBuffer::release()
{
    if (m_mapping != nullptr)
        munmap(m_mapping, m_mappingLength);
    m_mapping = nullptr;
    m_data = nullptr;
    m_length = 0;
}

std::byte *PageBuffer::resize(std::size_t length)
{
    if (length <= m_length)
        return m_data;
    release();
    // Whole huge pages, and one more to align the start.
    length = (length + hugePageLength - 1) / hugePageLength * hugePageLength;
    m_mappingLength = length + hugePageLength;
    void *mapping = mmap(nullptr, m_mappingLength, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED)
        throw std::bad_alloc();
    m_mapping = mapping;
    const auto address = reinterpret_cast<std::uintptr_t>(mapping);
    const std::uintptr_t aligned = (address + hugePageLength - 1) / hugePageLength * hugePageLength;
    m_data = static_cast<std::byte *>(mapping) + (aligned - address);
    m_length = length;
    madvise(m_data, length, MADV_HUGEPAGE); // only a hint
    return m_data;
}

} // namespace quellora::screencapture
