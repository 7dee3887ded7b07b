#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quellora::server {

/// The networks of the proxies that are believed when they say for whom they ask.
class TrustedProxies
{
public:
    /// Adds an address or a network such as "10.0.0.0/8". False when @p text is neither.
    bool add(const std::string &text);
    /// Who asks: @p peer, or, as long as that is a trusted proxy, whom it names. @p forwarded has
    /// the values of X-Forwarded-For in their order, each with one address or several.
    std::string clientOf(const std::string &peer, const std::vector<std::string> &forwarded) const;
    /// Whether @p address is one of them.
    bool contains(const std::string &address) const;

private:
    struct Network
    {
        /// Four bytes or sixteen.
        std::string address;
        std::size_t bits = 0;
    };
    std::vector<Network> m_networks;
};

} // namespace quellora::server
