#pragma once

#include "platform/ScreenSource.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace quellora {

/// The permission to take pictures through the Screenshot portal, as far as this program can know:
/// whether the desktop has the portal, the answer that the desktop's permission store keeps
/// (table and id "screenshot"), and the outcome of the last picture. Asynchronous. Main thread
/// only.
class PortalPermission : public QObject
{
    Q_OBJECT
public:
    using Access = ScreenSource::Access;

    /// @param appId under which the desktop keeps the answer
    explicit PortalPermission(QString appId = currentAppId(), QObject *parent = nullptr);

    /// The name that portals give this process, from the control group that the desktop has started
    /// it in; empty if it has none.
    static QString currentAppId();
    /// @param controlGroup contents of /proc/self/cgroup
    static QString appId(const QByteArray &controlGroup);

    /// Starts observing. Call once, with a connected bus.
    void start(const QDBusConnection &bus);
    /// There is no bus.
    void setUnavailable();

    Access access() const { return m_access; }
    /// A picture has been taken.
    void noteGranted();
    /// The portal did not take a picture. Looks up the reason and calls @p done with the access.
    void noteFailed(QObject *context, std::function<void(Access)> done);
    /// The user has declined.
    void noteRefused();

    /// The command that makes the desktop forget its answer, so that it asks again.
    QString resetCommand() const;

Q_SIGNALS:
    void changed();
    /// The process that implements the portal is gone.
    void portalEnded();

private Q_SLOTS:
    void portalChanged(const QString &name, const QString &before, const QString &now);
    void storeChanged(const QDBusMessage &message);

private:
    void queryPortal();
    void lookUp(QObject *context, std::function<void()> done);
    void setAccess(Access access);
    void update();

    QString m_appId;
    /// Name under which the answer is stored.
    QString m_storedId;
    std::optional<QDBusConnection> m_bus;
    std::optional<bool> m_hasPortal;
    /// "yes" or "no"; empty if the user was not asked yet; unset while unknown.
    std::optional<QString> m_stored;
    /// Outcome of the last picture; unset before it and when the stored answer has changed since.
    std::optional<bool> m_outcome;
    Access m_access = Access::Unknown;
};

} // namespace quellora
