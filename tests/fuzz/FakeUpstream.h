#pragma once

#include <string>
#include <vector>

/// Stands in for the transfers to model providers: what they "send" is the fuzzer's.
namespace quellora::fuzz {

struct UpstreamReply
{
    std::string bytes;
    /// Sizes of the pieces in which a stream arrives.
    std::vector<std::size_t> pieces{1U << 20U};
};

/// What every transfer from now on delivers. Set before transfers run.
void setUpstreamReply(UpstreamReply reply);

} // namespace quellora::fuzz
