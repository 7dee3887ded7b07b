#pragma once

#include "backend/Records.h"

#include <QObject>

namespace quellora {

/// The three named notifications of the program as typed signals. Main thread only.
class NotificationCenter : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// The process-wide centre; tests construct their own.
    static NotificationCenter &shared();

Q_SIGNALS:
    /// The session ended by sign-out or rejection and must be replaced by the login window.
    void sessionExpired();
    /// The session was cleared from memory.
    void sessionDidEnd();
    /// A fresh account configuration arrived.
    void configDidUpdate(const quellora::AppConfigResponse &config);
};

} // namespace quellora
