#include "platform/linux/DesktopSessionLinux.h"

#include "base/Log.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

namespace quellora {
namespace {

const QString loginService = QStringLiteral("org.freedesktop.login1");
const QString managerPath = QStringLiteral("/org/freedesktop/login1");
const QString managerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString busPath = QStringLiteral("/org/freedesktop/DBus");
const QString ownerChanged = QStringLiteral("NameOwnerChanged");
const QString lockedHint = QStringLiteral("LockedHint");

/// A screen locker; its bus name is also its interface.
struct Saver
{
    QString name;
    QString path;
};

const QList<Saver> &savers()
{
    static const QList<Saver> list{
        {QStringLiteral("org.freedesktop.ScreenSaver"),
         QStringLiteral("/org/freedesktop/ScreenSaver")},
        {QStringLiteral("org.gnome.ScreenSaver"), QStringLiteral("/org/gnome/ScreenSaver")}};
    return list;
}

QDBusMessage propertyRead(const QString &path, const QString &interface, const QString &name)
{
    QDBusMessage get = QDBusMessage::createMethodCall(loginService, path, propertiesInterface,
                                                      QStringLiteral("Get"));
    get << interface << name;
    return get;
}

/// The ways to find this process's session, best first. A process started by the user's service
/// manager belongs to no session itself; the environment or the user's display session helps then.
QList<QDBusMessage> waysToSession()
{
    QDBusMessage byProcess = QDBusMessage::createMethodCall(
        loginService, managerPath, managerInterface, QStringLiteral("GetSessionByPID"));
    byProcess << static_cast<uint>(QCoreApplication::applicationPid());
    QList<QDBusMessage> ways{byProcess};
    const QString id = qEnvironmentVariable("XDG_SESSION_ID");
    if (!id.isEmpty()) {
        QDBusMessage byId = QDBusMessage::createMethodCall(
            loginService, managerPath, managerInterface, QStringLiteral("GetSession"));
        byId << id;
        ways << byId;
    }
    ways << propertyRead(QStringLiteral("/org/freedesktop/login1/user/self"),
                         QStringLiteral("org.freedesktop.login1.User"), QStringLiteral("Display"));
    return ways;
}

/// The session's object path in a reply to one of waysToSession(); empty if there is none.
QString sessionPath(const QDBusMessage &reply)
{
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    const QVariant value = reply.arguments().constFirst();
    if (value.canConvert<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    // The property is a structure of the session's id and path; both are empty or "/" for none.
    const QVariant inner = value.value<QDBusVariant>().variant();
    if (!inner.canConvert<QDBusArgument>())
        return {};
    const auto argument = inner.value<QDBusArgument>();
    if (argument.currentSignature() != QStringLiteral("(so)"))
        return {};
    QString id;
    QDBusObjectPath path;
    argument.beginStructure();
    argument >> id >> path;
    argument.endStructure();
    return id.isEmpty() ? QString() : path.path();
}

} // namespace

DesktopSessionLinux::DesktopSessionLinux(const QString &systemBus, const QString &sessionBus)
    : m_hasBus(!systemBus.isEmpty() || !sessionBus.isEmpty())
    , m_systemBus(QStringLiteral("login"), systemBus)
    , m_sessionBus(QStringLiteral("lockers"), sessionBus)
{
    connect(&m_systemBus, &SessionBusLinux::connected, this, &DesktopSessionLinux::watchLogin);
    connect(&m_sessionBus, &SessionBusLinux::connected, this, &DesktopSessionLinux::watchSavers);
}

Capability DesktopSessionLinux::isObserved() const
{
    return m_hasBus ? Capability::applied()
                    : Capability::unsupported(QStringLiteral(
                          "Locking and sleep go unnoticed: there is no message bus"));
}

void DesktopSessionLinux::call(const SessionBusLinux &bus, QDBusMessage message,
                               const Reply &received)
{
    message.setAutoStartService(false);
    auto *watcher = new QDBusPendingCallWatcher(bus.connection().asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [received](QDBusPendingCallWatcher *finished) {
                received(finished->reply());
                finished->deleteLater();
            });
}

void DesktopSessionLinux::watchLogin()
{
    QDBusConnection bus = m_systemBus.connection();
    // No senders: Qt would look up a named sender's owner with a blocking call. The slots check it.
    bus.connect(QString(), busPath, busService, ownerChanged, {loginService}, QString(), this,
                SLOT(loginOwnerChanged(QString, QString, QString, QDBusMessage)));
    bus.connect(QString(), managerPath, managerInterface, QStringLiteral("PrepareForSleep"), this,
                SLOT(prepareForSleep(bool, QDBusMessage)));
    findLoginSession();
}

void DesktopSessionLinux::loginOwnerChanged(const QString &, const QString &, const QString &now,
                                            const QDBusMessage &message)
{
    if (message.service() != busService)
        return;
    m_loginOwner.clear();
    setLoginLocked(false, false);
    if (!now.isEmpty())
        findLoginSession();
}

void DesktopSessionLinux::findLoginSession()
{
    ++m_search;
    QDBusMessage owner = QDBusMessage::createMethodCall(busService, busPath, busService,
                                                        QStringLiteral("GetNameOwner"));
    owner << loginService;
    call(m_systemBus, owner, [this, search = m_search](const QDBusMessage &reply) {
        if (search != m_search || reply.type() != QDBusMessage::ReplyMessage)
            return;
        m_loginOwner = reply.arguments().value(0).toString();
        askForSession(0);
    });
}

void DesktopSessionLinux::askForSession(qsizetype way)
{
    const QList<QDBusMessage> ways = waysToSession();
    if (way >= ways.size())
        return;
    call(m_systemBus, ways.at(way), [this, way, search = m_search](const QDBusMessage &reply) {
        if (search != m_search)
            return;
        const QString path = sessionPath(reply);
        if (path.isEmpty())
            askForSession(way + 1);
        else
            useLoginSession(path);
    });
}

void DesktopSessionLinux::useLoginSession(const QString &path)
{
    if (path != m_loginSession) {
        QDBusConnection bus = m_systemBus.connection();
        const auto route = [&](auto function, const QString &object) {
            function(object, sessionInterface, QStringLiteral("Lock"),
                     SLOT(lockSignalled(QDBusMessage)));
            function(object, sessionInterface, QStringLiteral("Unlock"),
                     SLOT(unlockSignalled(QDBusMessage)));
            function(
                object, propertiesInterface, QStringLiteral("PropertiesChanged"),
                SLOT(sessionPropertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
        };
        if (!m_loginSession.isEmpty())
            route(
                [&](const QString &object, const QString &interface, const QString &name,
                    const char *slot) {
                    bus.disconnect(QString(), object, interface, name, this, slot);
                },
                m_loginSession);
        m_loginSession = path;
        route(
            [&](const QString &object, const QString &interface, const QString &name,
                const char *slot) { bus.connect(QString(), object, interface, name, this, slot); },
            m_loginSession);
    }
    readLockedHint();
}

void DesktopSessionLinux::readLockedHint()
{
    call(m_systemBus, propertyRead(m_loginSession, sessionInterface, lockedHint),
         [this, search = m_search](const QDBusMessage &reply) {
             if (search != m_search || reply.type() != QDBusMessage::ReplyMessage)
                 return;
             const QVariant hint = reply.arguments().value(0).value<QDBusVariant>().variant();
             if (hint.typeId() == QMetaType::Bool)
                 setLoginLocked(hint.toBool(), true);
         });
}

bool DesktopSessionLinux::isFromLogin(const QDBusMessage &message) const
{
    return !m_loginOwner.isEmpty() && message.service() == m_loginOwner;
}

void DesktopSessionLinux::prepareForSleep(bool isBeginning, const QDBusMessage &message)
{
    if (isFromLogin(message) && !isBeginning)
        Q_EMIT resumed();
}

void DesktopSessionLinux::lockSignalled(const QDBusMessage &message)
{
    if (isFromLogin(message))
        setLoginLocked(true, m_isHintSet);
}

void DesktopSessionLinux::unlockSignalled(const QDBusMessage &message)
{
    if (isFromLogin(message))
        setLoginLocked(false, false);
}

void DesktopSessionLinux::sessionPropertiesChanged(const QString &interface,
                                                   const QVariantMap &changed,
                                                   const QStringList &invalidated,
                                                   const QDBusMessage &message)
{
    if (!isFromLogin(message) || interface != sessionInterface)
        return;
    const QVariant hint = changed.value(lockedHint);
    if (hint.typeId() == QMetaType::Bool)
        setLoginLocked(hint.toBool(), true);
    else if (invalidated.contains(lockedHint))
        readLockedHint();
}

void DesktopSessionLinux::watchSavers()
{
    QDBusConnection bus = m_sessionBus.connection();
    for (const Saver &saver : savers()) {
        bus.connect(QString(), busPath, busService, ownerChanged, {saver.name}, QString(), this,
                    SLOT(saverOwnerChanged(QString, QString, QString)));
        bus.connect(QString(), saver.path, saver.name, QStringLiteral("ActiveChanged"), this,
                    SLOT(saverActiveChanged(bool, QDBusMessage)));
        askSaver(saver.name);
    }
}

void DesktopSessionLinux::saverOwnerChanged(const QString &name, const QString &,
                                            const QString &now)
{
    if (now.isEmpty())
        setSaverActive(name, false);
    else
        askSaver(name);
}

void DesktopSessionLinux::askSaver(const QString &name)
{
    for (const Saver &saver : savers()) {
        if (saver.name != name)
            continue;
        const QDBusMessage get = QDBusMessage::createMethodCall(saver.name, saver.path, saver.name,
                                                                QStringLiteral("GetActive"));
        call(m_sessionBus, get, [this, name](const QDBusMessage &reply) {
            const QVariant active = reply.arguments().value(0);
            if (reply.type() == QDBusMessage::ReplyMessage && active.typeId() == QMetaType::Bool)
                setSaverActive(name, active.toBool());
        });
    }
}

void DesktopSessionLinux::saverActiveChanged(bool isActive, const QDBusMessage &message)
{
    setSaverActive(message.interface(), isActive);
}

void DesktopSessionLinux::setLoginLocked(bool isLocked, bool isHint)
{
    m_isLoginLocked = isLocked;
    m_isHintSet = isLocked && isHint;
    update();
}

void DesktopSessionLinux::setSaverActive(const QString &name, bool isActive)
{
    const bool wasActive = m_savers.value(name);
    m_savers.insert(name, isActive);
    if (wasActive && !isActive && !m_isHintSet)
        m_isLoginLocked = false;
    update();
}

void DesktopSessionLinux::update()
{
    const bool isLocked = m_isLoginLocked || m_savers.values().contains(true);
    if (isLocked == m_isLocked)
        return;
    m_isLocked = isLocked;
    Log::event(isLocked ? QStringLiteral("[DesktopSession] Session locked")
                        : QStringLiteral("[DesktopSession] Session unlocked"));
    Q_EMIT lockedChanged(isLocked);
}

} // namespace quellora
