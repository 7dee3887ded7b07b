#include "platform/linux/AppearanceLinux.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace quellora {
namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");
const QString interfaceGroup = QStringLiteral("org.gnome.desktop.interface");
const QString animationsKey = QStringLiteral("enable-animations");

bool isPaletteDark()
{
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

} // namespace

AppearanceLinux::AppearanceLinux(const QString &busAddress)
    : m_bus(QStringLiteral("appearance"), busAddress), m_dark(isPaletteDark())
{
    qGuiApp->installEventFilter(this);
    connect(&m_bus, &SessionBusLinux::connected, this, &AppearanceLinux::askPortal);
}

void AppearanceLinux::askPortal()
{
    QDBusConnection bus = m_bus.connection();
    // Without a sender: naming one would ask the bus for its owner and wait. Only the portal's own
    // path and interface match, and the value is a bare number.
    bus.connect(QString(), portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QString, QString, QDBusVariant)));
    ask(appearanceGroup, colorSchemeKey);
    ask(interfaceGroup, animationsKey);
}

void AppearanceLinux::ask(const QString &group, const QString &key)
{
    QDBusMessage read = QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface,
                                                       QStringLiteral("Read"));
    read << group << key;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, group, key](QDBusPendingCallWatcher *finished) {
                const QDBusPendingReply<QVariant> reply = *finished;
                if (!reply.isError())
                    take(group, key, reply.value());
                finished->deleteLater();
            });
}

void AppearanceLinux::settingChanged(const QString &group, const QString &key,
                                     const QDBusVariant &value)
{
    take(group, key, value.variant());
}

void AppearanceLinux::take(const QString &group, const QString &key, const QVariant &value)
{
    // Read() wraps the value in a second variant.
    const QVariant inner =
        value.canConvert<QDBusVariant>() ? value.value<QDBusVariant>().variant() : value;
    if (group == appearanceGroup && key == colorSchemeKey)
        setScheme(inner);
    else if (group == interfaceGroup && key == animationsKey)
        setAnimated(inner);
}

void AppearanceLinux::setAnimated(const QVariant &value)
{
    const bool reduces = value.typeId() == QMetaType::Bool && !value.toBool();
    if (reduces == m_reducesMotion)
        return;
    m_reducesMotion = reduces;
    if (m_motionHandler)
        m_motionHandler();
}

void AppearanceLinux::setScheme(const QVariant &value)
{
    bool isNumber = false;
    const uint number = value.toUInt(&isNumber);
    // The portal reserves other numbers: they mean no preference.
    m_scheme = isNumber && number <= static_cast<uint>(Scheme::Light) ? static_cast<Scheme>(number)
                                                                      : Scheme::NoPreference;
    update();
}

bool AppearanceLinux::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange && watched == qGuiApp)
        update();
    return QObject::eventFilter(watched, event);
}

void AppearanceLinux::update()
{
    const bool dark = m_scheme == Scheme::NoPreference ? isPaletteDark() : m_scheme == Scheme::Dark;
    if (dark == m_dark)
        return;
    m_dark = dark;
    if (m_handler)
        m_handler();
}

} // namespace quellora
