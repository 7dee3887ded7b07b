#include "platform/SocketEnd.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quellora {

SocketEnd::SocketEnd(qintptr socketDescriptor)
    : m_descriptor(::fcntl(static_cast<int>(socketDescriptor), F_DUPFD_CLOEXEC, 0))
{}

bool SocketEnd::isReset() const
{
    if (m_descriptor < 0)
        return false;
    // After an end in order there is still somebody at the other side.
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(m_descriptor, reinterpret_cast<sockaddr *>(&peer), &size) != 0;
}

void SocketEnd::release()
{
    if (const int descriptor = std::exchange(m_descriptor, -1); descriptor >= 0)
        ::close(descriptor);
}

QString SocketEnd::resetText()
{
    return qt_error_string(ECONNRESET);
}

} // namespace quellora
