#pragma once

#include <QString>
#include <QtGlobal>

namespace quellora {

/// Tells how a TCP connection ended after the toolkit's socket has closed it: the toolkit reports a
/// connection that broke off like one that was ended in order. Keeps the connection open until it
/// is released.
class SocketEnd
{
public:
    /// @param socketDescriptor of a connected socket, which stays with its owner
    explicit SocketEnd(qintptr socketDescriptor);
    ~SocketEnd() { release(); }
    Q_DISABLE_COPY_MOVE(SocketEnd)

    /// Whether the other side has broken the connection off; false after release().
    bool isReset() const;
    void release();

    /// The system's words for a connection that broke off.
    static QString resetText();

private:
    int m_descriptor;
};

} // namespace quellora
