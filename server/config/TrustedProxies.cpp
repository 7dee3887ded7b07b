#include "config/TrustedProxies.h"

#include "base/Text.h"

#include <boost/asio/ip/address.hpp>

#include <algorithm>
#include <charconv>

namespace quellora::server {
namespace {

namespace ip = boost::asio::ip;

/// The bytes of an address, of a mapped one those of version 4; empty when it is none.
std::string bytesOf(const std::string &text)
{
    boost::system::error_code error;
    ip::address address = ip::make_address(text, error);
    if (error)
        return {};
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        address = ip::make_address_v4(ip::v4_mapped, address.to_v6());
    const auto copied = [](const auto &bytes) { return std::string(bytes.begin(), bytes.end()); };
    return address.is_v4() ? copied(address.to_v4().to_bytes())
                           : copied(address.to_v6().to_bytes());
}

bool haveCommonBits(const std::string &a, const std::string &b, std::size_t bits)
{
    const std::size_t whole = bits / 8;
    if (a.compare(0, whole, b, 0, whole) != 0)
        return false;
    const unsigned mask = 0xFF00U >> (bits % 8) & 0xFFU;
    return bits % 8 == 0 ||
           ((static_cast<unsigned char>(a[whole]) ^ static_cast<unsigned char>(b[whole])) & mask) ==
               0;
}

} // namespace

bool TrustedProxies::add(const std::string &text)
{
    const std::size_t slash = text.find('/');
    Network network{bytesOf(text.substr(0, slash)), 0};
    network.bits = 8 * network.address.size();
    if (network.address.empty())
        return false;
    if (slash != std::string::npos) {
        const char *end = text.data() + text.size();
        std::size_t bits = 0;
        const auto [rest, error] = std::from_chars(text.data() + slash + 1, end, bits);
        if (error != std::errc() || rest != end || bits > network.bits)
            return false;
        network.bits = bits;
    }
    m_networks.push_back(std::move(network));
    return true;
}

bool TrustedProxies::contains(const std::string &address) const
{
    const std::string bytes = bytesOf(address);
    return std::any_of(m_networks.begin(), m_networks.end(), [&](const Network &network) {
        return network.address.size() == bytes.size() &&
               haveCommonBits(network.address, bytes, network.bits);
    });
}

std::string TrustedProxies::clientOf(const std::string &peer,
                                     const std::vector<std::string> &forwarded) const
{
    std::string client = peer;
    for (auto line = forwarded.rbegin(); line != forwarded.rend(); ++line) {
        std::string rest = *line;
        while (!rest.empty() && contains(client)) {
            const std::size_t comma = rest.rfind(',');
            const std::string before =
                trimmed(comma == std::string::npos ? rest : rest.substr(comma + 1));
            rest.resize(comma == std::string::npos ? 0 : comma);
            // What is no address was not written by a proxy.
            if (bytesOf(before).empty())
                return client;
            client = before;
        }
    }
    return client;
}

} // namespace quellora::server
