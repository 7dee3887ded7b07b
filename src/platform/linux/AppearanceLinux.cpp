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
    connect(&m_bus, &SessionBusLinux::connected, this, &AppearanceLinux::readSettings);
}

void AppearanceLinux::readSettings()
{
    QDBusConnection bus = m_bus.connection();
    // No sender: Qt would look up a named sender's owner with a blocking call. Path and interface
    // identify the portal, and the value is only a number or a flag.
    bus.connect(QString(), portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QString, QString, QDBusVariant)));
    readSetting(appearanceGroup, colorSchemeKey);
    readSetting(interfaceGroup, animationsKey);
}

void AppearanceLinux::readSetting(const QString &group, const QString &key)
{
    QDBusMessage read = QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface,
                                                       QStringLiteral("Read"));
    read << group << key;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, group, key](QDBusPendingCallWatcher *finished) {
                const QDBusPendingReply<QVariant> reply = *finished;
                if (!reply.isError())
                    applySetting(group, key, reply.value());
                finished->deleteLater();
            });
}

void AppearanceLinux::settingChanged(const QString &group, const QString &key,
                                     const QDBusVariant &value)
{
    applySetting(group, key, value.variant());
}

void AppearanceLinux::applySetting(const QString &group, const QString &key, const QVariant &value)
{
    // Read() wraps the value in a second variant.
    const QVariant inner =
        value.canConvert<QDBusVariant>() ? value.value<QDBusVariant>().variant() : value;
    if (group == appearanceGroup && key == colorSchemeKey)
        applyColorScheme(inner);
    else if (group == interfaceGroup && key == animationsKey)
        applyAnimations(inner);
}

void AppearanceLinux::applyAnimations(const QVariant &value)
{
    const bool reduces = value.typeId() == QMetaType::Bool && !value.toBool();
    if (reduces == m_reducesMotion)
        return;
    m_reducesMotion = reduces;
    if (m_motionHandler)
        m_motionHandler();
}

void AppearanceLinux::applyColorScheme(const QVariant &value)
{
    bool isNumber = false;
    const uint number = value.toUInt(&isNumber);
    // The portal reserves other values; treat them as no preference.
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
    if (m_schemeHandler)
        m_schemeHandler();
}

} // namespace quellora
