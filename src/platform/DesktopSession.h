#pragma once

#include "platform/Platform.h"

#include <QObject>

#include <utility>

namespace quellora {

/// The user's session on the desktop: whether it is locked, and the end of the machine's sleep.
/// Main thread only.
class DesktopSession : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Whether this system reports locking and sleep; otherwise no signal is ever emitted.
    virtual Capability isObserved() const = 0;
    /// Whether the session is known to be locked; false as long as its state is unknown.
    virtual bool isLocked() const = 0;

Q_SIGNALS:
    void lockedChanged(bool isLocked);
    /// The machine woke up from sleep.
    void resumed();
};

/// DesktopSession for systems that report nothing.
class UnobservedSession : public DesktopSession
{
    Q_OBJECT
public:
    /// @param reason why nothing is reported
    explicit UnobservedSession(QString reason) : m_reason(std::move(reason)) {}

    Capability isObserved() const override { return Capability::unsupported(m_reason); }
    bool isLocked() const override { return false; }

private:
    QString m_reason;
};

} // namespace quellora
