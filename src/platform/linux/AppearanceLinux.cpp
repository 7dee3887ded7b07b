#include "platform/linux/AppearanceLinux.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QScreen>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace quellora {
namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");
const QString interfaceGroup = QStringLiteral("org.gnome.desktop.interface");
const QString animationsKey = QStringLiteral("enable-animations");
const QString textFactorKey = QStringLiteral("text-scaling-factor");
const QString kdeGroup = QStringLiteral("org.kde.kdeglobals.KDE");
const QString animationDurationKey = QStringLiteral("AnimationDurationFactor");
const QString kdeGeneralGroup = QStringLiteral("org.kde.kdeglobals.General");
const QString fontKey = QStringLiteral("font");

/// Size of KDE's default font in typographic points.
constexpr double defaultFontSize = 10;
constexpr double minimumTextScale = 0.5;
constexpr double maximumTextScale = 3;

bool isPaletteDark()
{
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

/// The finite number in @p value, which KDE sends as text; nullopt if it is none.
std::optional<double> toNumber(const QVariant &value)
{
    const int type = value.typeId();
    if (type != QMetaType::Double && type != QMetaType::Int && type != QMetaType::UInt &&
        type != QMetaType::QString)
        return std::nullopt;
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    return isNumber && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

/// A factor that enlarges text; 1 for @p value that is none.
double toTextFactor(std::optional<double> value)
{
    return value && *value > 0 ? std::clamp(*value, minimumTextScale, maximumTextScale) : 1;
}

/// The size in typographic points of a font in KDE's notation, e.g. "Noto
/// Sans,10,-1,5,50,0,0,0,0,0".
std::optional<double> fontSize(const QVariant &value)
{
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    const QStringList parts = value.toString().split(QLatin1Char(','));
    if (parts.size() < 2)
        return std::nullopt;
    const std::optional<double> size = toNumber(parts.at(1));
    return size && *size > 0 ? size : std::nullopt;
}

/// Whether @p resolutionFactor is @p textFactor times a whole number, the scale of the windows.
bool containsTextFactor(double resolutionFactor, double textFactor)
{
    if (resolutionFactor == 1)
        return false;
    // The resolution is rounded to whole dots per inch.
    constexpr double tolerance = 0.02;
    const double windowScale = resolutionFactor / textFactor;
    return std::round(windowScale) >= 1 &&
           std::abs(windowScale - std::round(windowScale)) < tolerance;
}

} // namespace

AppearanceLinux::AppearanceLinux(const QString &busAddress, ResolutionFactor resolutionFactor)
    : m_bus(QStringLiteral("appearance"), busAddress)
    , m_dark(isPaletteDark())
    , m_resolutionFactor(std::move(resolutionFactor))
{
    qGuiApp->installEventFilter(this);
    // The resolution changes with the text size, before or after the portal reports it.
    const auto watch = [this](QScreen *screen) {
        if (screen)
            connect(screen, &QScreen::geometryChanged, this, &AppearanceLinux::updateTextScale);
    };
    watch(QGuiApplication::primaryScreen());
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, [this, watch](QScreen *screen) {
        watch(screen);
        updateTextScale();
    });
    connect(&m_bus, &SessionBusLinux::connected, this, &AppearanceLinux::readSettings);
}

void AppearanceLinux::readSettings()
{
    QDBusConnection bus = m_bus.connection();
    // The bus looks up the slot's types by name, which this one does not have before.
    qRegisterMetaType<QDBusVariant>();
    // No sender: Qt would look up a named sender's owner with a blocking call. Path and interface
    // identify the portal, and the value is only a number or a flag.
    bus.connect(QString(), portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QString, QString, QDBusVariant)));
    readSetting(appearanceGroup, colorSchemeKey);
    readSetting(interfaceGroup, animationsKey);
    readSetting(interfaceGroup, textFactorKey);
    readSetting(kdeGroup, animationDurationKey);
    readSetting(kdeGeneralGroup, fontKey);
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
    if (group == appearanceGroup && key == colorSchemeKey) {
        applyColorScheme(inner);
    } else if (group == interfaceGroup && key == animationsKey) {
        m_hasAnimations = inner.typeId() != QMetaType::Bool || inner.toBool();
        updateMotion();
    } else if (group == kdeGroup && key == animationDurationKey) {
        m_animationDuration = toNumber(inner).value_or(1);
        updateMotion();
    } else if (group == interfaceGroup && key == textFactorKey) {
        m_textFactor = toTextFactor(toNumber(inner));
        updateTextScale();
    } else if (group == kdeGeneralGroup && key == fontKey) {
        const std::optional<double> size = fontSize(inner);
        m_fontFactor = toTextFactor(size ? std::optional(*size / defaultFontSize) : std::nullopt);
        updateTextScale();
    }
}

double AppearanceLinux::reportedResolutionFactor()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen || QGuiApplication::platformName() != QLatin1StringView("xcb"))
        return 1;
    bool isNumber = false;
    const double asked = qEnvironmentVariable("QT_SCALE_FACTOR").toDouble(&isNumber);
    return screen->devicePixelRatio() / (isNumber && asked > 0 ? asked : 1);
}

void AppearanceLinux::updateTextScale()
{
    const bool isApplied =
        m_textFactor != 1 && containsTextFactor(m_resolutionFactor(), m_textFactor);
    const double scale = std::clamp((isApplied ? 1 : m_textFactor) * m_fontFactor, minimumTextScale,
                                    maximumTextScale);
    if (scale == m_textScale)
        return;
    m_textScale = scale;
    if (m_textScaleHandler)
        m_textScaleHandler();
}

void AppearanceLinux::updateMotion()
{
    const bool reduces = !m_hasAnimations || m_animationDuration == 0;
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
