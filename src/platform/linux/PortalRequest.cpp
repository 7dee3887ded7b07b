#include "platform/linux/PortalRequest.h"

#include "platform/linux/SessionBusLinux.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <utility>

namespace quellora {
namespace {

const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString responseSignal = QStringLiteral("Response");

/// Different for every request of this process.
QString nextToken()
{
    static quint64 count = 0;
    return QStringLiteral("quellora_%1").arg(++count);
}

} // namespace

QString PortalRequest::service()
{
    return QStringLiteral("org.freedesktop.portal.Desktop");
}

QString PortalRequest::path()
{
    return QStringLiteral("/org/freedesktop/portal/desktop");
}

QDBusMessage PortalRequest::call(const QString &interface, const QString &method)
{
    return QDBusMessage::createMethodCall(service(), path(), interface, method);
}

PortalRequest::PortalRequest(const QDBusConnection &bus, QDBusMessage call, QVariantMap options,
                             QObject *parent)
    : QObject(parent), m_bus(bus)
{
    const QString token = nextToken();
    // The portal derives the handle from the caller's name and this token, but portals before
    // version 0.9 choose another one. So this listens to all responses, before the call.
    // No sender: Qt would look up a named sender's owner with a blocking call. The slot checks it.
    m_bus.connect(QString(), QString(), requestInterface, responseSignal, this,
                  SLOT(responded(QDBusMessage)));
    const QString sender = m_bus.baseService().mid(1).replace(u'.', u'_');
    m_handle = path() + QStringLiteral("/request/") + sender + u'/' + token;
    options.insert(QStringLiteral("handle_token"), token);
    call << options;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                handleReply(finished->reply());
            });
}

PortalRequest::~PortalRequest()
{
    m_bus.disconnect(QString(), QString(), requestInterface, responseSignal, this,
                     SLOT(responded(QDBusMessage)));
}

void PortalRequest::handleReply(const QDBusMessage &reply)
{
    if (m_isFinished)
        return;
    if (reply.type() != QDBusMessage::ReplyMessage) {
        m_isFinished = true;
        Q_EMIT finished(Outcome::Failed, {}, SessionBusLinux::errorText(reply));
        return;
    }
    m_owner = reply.service();
    const QString handle = reply.arguments().value(0).value<QDBusObjectPath>().path();
    if (!handle.isEmpty())
        m_handle = handle;
    for (const QDBusMessage &response : std::exchange(m_early, {}))
        responded(response);
}

void PortalRequest::responded(const QDBusMessage &response)
{
    if (m_isFinished)
        return;
    if (m_owner.isEmpty())
        m_early << response;
    else if (response.path() == m_handle && response.service() == m_owner)
        finishWith(response);
}

void PortalRequest::finishWith(const QDBusMessage &response)
{
    m_isFinished = true;
    const QVariantList arguments = response.arguments();
    if (response.signature() != QStringLiteral("ua{sv}")) {
        Q_EMIT finished(Outcome::Failed, {}, QStringLiteral("the response is malformed"));
        return;
    }
    const uint code = arguments.at(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(arguments.at(1));
    if (code == 0)
        Q_EMIT finished(Outcome::Done, results, {});
    else if (code == 1)
        Q_EMIT finished(Outcome::Cancelled, {}, {});
    else
        Q_EMIT finished(Outcome::Failed, {},
                        QStringLiteral("the portal ended the request with code %1").arg(code));
}

} // namespace quellora
