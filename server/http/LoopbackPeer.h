#pragma once

#include <string>

namespace quellora::server {

/// Whether a connection from @p address, port @p peerPort, to our @p serverPort was opened on
/// this machine by the user who runs this process (or by root). Where the system does not tell
/// who owns a connection, none counts: the password is asked for instead.
bool peerIsOwnUser(const std::string &address, int peerPort, int serverPort);

} // namespace quellora::server
