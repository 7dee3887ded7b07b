#pragma once

#include <fstream>
#include <memory>
#include <utility>
#include <vector>

#include <unistd.h>

namespace quellora {

/// Small blocks that were freed between others in use, so that the allocator of the GNU C library
/// keeps their memory.
class FreedBlocks
{
public:
    FreedBlocks()
    {
        std::vector<Block> blocks(count);
        for (Block &block : blocks)
            block = Block(new char[blockSize]());
        for (std::size_t i = 0; i < count; i += 64)
            m_inUse.push_back(std::move(blocks[i]));
        m_inUse.push_back(std::move(blocks.back()));
    }

    /// What of this process is in memory, in bytes.
    static std::size_t resident()
    {
        std::size_t program = 0;
        std::size_t resident = 0;
        std::ifstream("/proc/self/statm") >> program >> resident;
        return resident * std::size_t(sysconf(_SC_PAGESIZE));
    }

    /// All of them, in bytes.
    static constexpr std::size_t size = std::size_t{32} << 20;

private:
    using Block = std::unique_ptr<char[]>;
    static constexpr std::size_t blockSize = 2048;
    static constexpr std::size_t count = size / blockSize;

    std::vector<Block> m_inUse;
};

} // namespace quellora
