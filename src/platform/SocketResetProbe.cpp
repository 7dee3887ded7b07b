#include "platform/SocketResetProbe.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quellora {

SocketResetProbe::SocketResetProbe(qintptr socketDescriptor)
    : m_descriptor(::fcntl(static_cast<int>(socketDescriptor), F_DUPFD_CLOEXEC, 0))
{}

bool SocketResetProbe::isReset() const
{
    if (m_descriptor < 0)
        return false;
    // After an orderly close the socket still has a peer address; after a reset it has none.
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(m_descriptor, reinterpret_cast<sockaddr *>(&peer), &size) != 0;
}

void SocketResetProbe::release()
{
    if (const int descriptor = std::exchange(m_descriptor, -1); descriptor >= 0)
        ::close(descriptor);
}

QString SocketResetProbe::resetErrorText()
{
    return qt_error_string(ECONNRESET);
}

} // namespace quellora
