#include "platform/linux/PortalPermission.h"

#include "platform/linux/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QFile>
#include <QMap>
#include <QPointer>
#include <QRegularExpression>
#include <QStringList>

#include <utility>

namespace quellora {
namespace {

const QString storeService = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
const QString storePath = QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");
const QString subject = QStringLiteral("screenshot");
const QString portal = QStringLiteral("org.freedesktop.portal.Screenshot");

/// Replaces the `\xNN` of a unit's name.
QString unescaped(const QString &unit)
{
    static const QRegularExpression escape(QStringLiteral(R"(\\x([0-9a-fA-F]{2}))"));
    QString text;
    qsizetype start = 0;
    auto matches = escape.globalMatch(unit);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        text += QStringView(unit).mid(start, match.capturedStart() - start);
        text += QChar(match.captured(1).toUInt(nullptr, 16));
        start = match.capturedEnd();
    }
    text += QStringView(unit).mid(start);
    return text;
}

/// The stored answer for one program out of an `a{sas}`.
/// @param appId set to the name under which it is stored
QString answerFor(const QVariant &permissions, QString &appId)
{
    QMap<QString, QStringList> all;
    const auto argument = permissions.value<QDBusArgument>();
    if (argument.currentType() != QDBusArgument::MapType)
        return {};
    argument >> all;
    // Portals before 1.18 do not recognise names without dots.
    if (!all.contains(appId))
        appId.clear();
    return all.value(appId).value(0);
}

} // namespace

PortalPermission::PortalPermission(QString appId, QObject *parent)
    : QObject(parent), m_appId(std::move(appId))
{}

QString PortalPermission::currentAppId()
{
    QFile file(QStringLiteral("/proc/self/cgroup"));
    return file.open(QIODevice::ReadOnly) ? appId(file.readAll()) : QString();
}

QString PortalPermission::appId(const QByteArray &controlGroup)
{
    // "app[-LAUNCHER]-ID-RANDOM.scope" or "app[-LAUNCHER]-ID[@RANDOM].service"
    static const QRegularExpression unit(
        QStringLiteral(
            R"(/app-(?:[A-Za-z0-9]+-)?([^/]+?)(?:-[A-Za-z0-9]*\.scope|(?:@[A-Za-z0-9]*)?\.service)(?:/|$))"),
        QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = unit.match(QString::fromUtf8(controlGroup));
    return match.hasMatch() ? unescaped(match.captured(1)) : QString();
}

void PortalPermission::start(const QDBusConnection &bus)
{
    m_bus = bus;
    // At login this program may start before the portal.
    m_bus->connect(QString(), QStringLiteral("/org/freedesktop/DBus"),
                   QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"),
                   {PortalRequest::service()}, QString(), this,
                   SLOT(portalChanged(QString, QString, QString)));
    m_bus->connect(QString(), storePath, storeService, QStringLiteral("Changed"), {subject},
                   QString(), this, SLOT(storeChanged(QDBusMessage)));
    queryPortal();
    lookUp(this, {});
}

void PortalPermission::setUnavailable()
{
    m_hasPortal = false;
    update();
}

void PortalPermission::portalChanged(const QString &, const QString &before, const QString &now)
{
    if (!before.isEmpty())
        Q_EMIT portalEnded();
    // Nothing to do if the portal ends: the next call starts it again.
    if (!now.isEmpty())
        queryPortal();
}

void PortalPermission::queryPortal()
{
    QDBusMessage get = PortalRequest::call(QStringLiteral("org.freedesktop.DBus.Properties"),
                                           QStringLiteral("Get"));
    get << portal << QStringLiteral("version");
    auto *watcher = new QDBusPendingCallWatcher(m_bus->asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                const QDBusPendingReply<QDBusVariant> reply = *finished;
                m_hasPortal = !reply.isError() && reply.value().variant().toUInt() > 0;
                update();
            });
}

void PortalPermission::lookUp(QObject *context, std::function<void()> done)
{
    if (!m_bus) {
        if (done)
            done();
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(storeService, storePath, storeService,
                                                       QStringLiteral("Lookup"));
    call << subject << subject;
    auto *watcher = new QDBusPendingCallWatcher(m_bus->asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, context = QPointer(context),
             done = std::move(done)](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                const QDBusMessage reply = finished->reply();
                // An error says that nothing is stored.
                m_storedId = m_appId;
                m_stored = reply.type() == QDBusMessage::ReplyMessage
                               ? answerFor(reply.arguments().value(0), m_storedId)
                               : QString();
                update();
                if (context && done)
                    done();
            });
}

void PortalPermission::storeChanged(const QDBusMessage &message)
{
    // table, id, deleted, data, permissions
    const QVariantList arguments = message.arguments();
    if (arguments.size() != 5 || arguments.at(1) != subject)
        return;
    m_storedId = m_appId;
    const QString stored =
        arguments.at(2).toBool() ? QString() : answerFor(arguments.at(4), m_storedId);
    if (m_stored == stored)
        return;
    m_stored = stored;
    m_outcome.reset();
    update();
}

void PortalPermission::noteGranted()
{
    m_outcome = true;
    update();
}

void PortalPermission::noteRefused()
{
    m_outcome = false;
    update();
}

void PortalPermission::noteFailed(QObject *context, std::function<void(Access)> done)
{
    lookUp(context, [this, done = std::move(done)] {
        if (m_stored == QStringLiteral("no"))
            m_outcome = false;
        update();
        done(m_access);
    });
}

QString PortalPermission::resetCommand() const
{
    return QStringLiteral("busctl --user call %1 %2 %1 DeletePermission sss %3 %3 '%4'")
        .arg(storeService, storePath, subject, m_storedId);
}

void PortalPermission::update()
{
    if (m_outcome)
        return setAccess(*m_outcome ? Access::Granted : Access::Refused);
    if (m_hasPortal == false)
        return setAccess(Access::Unavailable);
    if (!m_hasPortal || !m_stored)
        return setAccess(Access::Unknown);
    setAccess(*m_stored == QStringLiteral("yes")  ? Access::Granted
              : *m_stored == QStringLiteral("no") ? Access::Refused
                                                  : Access::NotAsked);
}

void PortalPermission::setAccess(Access access)
{
    if (m_access == access)
        return;
    m_access = access;
    Q_EMIT changed();
}

} // namespace quellora
