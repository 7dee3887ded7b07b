#include "http/LoopbackPeer.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

namespace quellora::server {
namespace {

/// The user id in the kernel's connection table for the pair of endpoints.
std::optional<long> connectionOwner(std::istream &table, const std::string &local,
                                    const std::string &remote)
{
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot;
        std::string localEnd;
        std::string remoteEnd;
        std::string skipped;
        long owner = -1;
        fields >> slot >> localEnd >> remoteEnd >> skipped >> skipped >> skipped >> skipped >>
            owner;
        if (fields && localEnd == local && remoteEnd == remote)
            return owner;
    }
    return std::nullopt;
}

std::string endpoint(const char *address, int port)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s:%04X", address, static_cast<unsigned>(port));
    return text;
}

} // namespace

bool peerIsOwnUser(const std::string &address, int peerPort, int serverPort)
{
    const bool v4 = address == "127.0.0.1";
    const bool v6 = address == "::1";
    if (!v4 && !v6)
        return false;
    std::ifstream table(v4 ? "/proc/net/tcp" : "/proc/net/tcp6");
    if (!table)
        return false;
    const char *loopback = v4 ? "0100007F" : "00000000000000000000000001000000";
    const auto owner =
        connectionOwner(table, endpoint(loopback, peerPort), endpoint(loopback, serverPort));
    return owner && (*owner == static_cast<long>(geteuid()) || *owner == 0);
}

} // namespace quellora::server
