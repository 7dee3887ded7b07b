#pragma once

#include <string>

namespace quellora::server {

/// Whether the connection from @p address and @p peerPort to @p serverPort was opened on this
/// machine by the user running this process or by root. Always false where the system does not
/// show who owns a connection.
bool peerIsOwnUser(const std::string &address, int peerPort, int serverPort);

} // namespace quellora::server
