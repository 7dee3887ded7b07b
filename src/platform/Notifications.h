#pragma once

#include "platform/Platform.h"

#include <QObject>
#include <QString>

#include <utility>

namespace quellora {

/// The program's notification on the desktop; there is at most one at a time. Non-blocking. Main
/// thread only.
class Notifications : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Whether the system can show notifications at all. A missing notification service is noticed
    /// by show() only.
    virtual Capability support() const = 0;
    /// Shows a notification in place of the previous one. A failure is logged.
    virtual void show(const QString &title, const QString &text) = 0;
    /// Removes the notification. No effect if there is none.
    virtual void close() = 0;

Q_SIGNALS:
    /// The user chose the notification.
    void chosen();
};

/// Notifications for systems without any.
class NoNotifications : public Notifications
{
    Q_OBJECT
public:
    /// @param reason why there are none
    explicit NoNotifications(QString reason) : m_reason(std::move(reason)) {}

    Capability support() const override { return Capability::unsupported(m_reason); }
    void show(const QString &, const QString &) override {}
    void close() override {}

private:
    QString m_reason;
};

} // namespace quellora
