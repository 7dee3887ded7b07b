#pragma once

#include <QString>
#include <QtGlobal>

namespace quellora {

/// Tells whether a closed TCP connection was reset by the peer; QTcpSocket reports a reset like an
/// orderly close. Duplicates the socket descriptor, which keeps the connection open until
/// release().
class SocketResetProbe
{
public:
    /// @param socketDescriptor of a connected socket; the caller keeps ownership
    explicit SocketResetProbe(qintptr socketDescriptor);
    ~SocketResetProbe() { release(); }
    Q_DISABLE_COPY_MOVE(SocketResetProbe)

    /// Whether the peer reset the connection; false after release().
    bool isReset() const;
    void release();

    /// The system's error text for a reset connection.
    static QString resetErrorText();

private:
    int m_descriptor;
};

} // namespace quellora
