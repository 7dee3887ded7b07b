#pragma once

#include "backend/Records.h"

#include <QObject>

namespace quellora {

/// Application-wide session notifications. Main thread only.
class NotificationCenter : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// The process-wide instance; tests construct their own.
    static NotificationCenter &shared();

Q_SIGNALS:
    /// The session ended by sign-out or rejection; the login window must be shown.
    void sessionExpired();
    /// The session was cleared from memory.
    void sessionDidEnd();
    /// An updated account configuration was received.
    void configDidUpdate(const quellora::AppConfigResponse &config);
};

} // namespace quellora
