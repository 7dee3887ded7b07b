#pragma once

#include "platform/Platform.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusVariant>
#include <QObject>

class QDBusPendingCallWatcher;

namespace quellora {

/// The desktop portal's settings for colour scheme, animations and text size: those of the
/// freedesktop.org and GNOME namespaces, and those of KDE, which has its own for animations and
/// enlarges text by a larger font.
///
/// The portal is queried asynchronously. Until it replies, and if it has no preference, the scheme
/// follows the lightness of the palette, motion is not reduced and text has its normal size. Main
/// thread only.
class AppearanceLinux : public QObject, public Appearance
{
    Q_OBJECT
public:
    /// Returns the factor by which the toolkit enlarges all windows because of the resolution that
    /// the X server reports.
    using ResolutionFactor = std::function<double()>;

    /// @param busAddress address of the session bus; empty if there is none
    explicit AppearanceLinux(const QString &busAddress = SessionBusLinux::address(),
                             ResolutionFactor resolutionFactor = &reportedResolutionFactor);

    bool isDark() const override { return m_dark; }
    void onChanged(std::function<void()> handler) override { m_schemeHandler = std::move(handler); }
    bool reducesMotion() const override { return m_reducesMotion; }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_motionHandler = std::move(handler);
    }

    /// Between 0.5 and 3. Only what the toolkit has not applied already: with an X server, some
    /// desktops multiply the reported resolution by the text size, too.
    double textScale() const override { return m_textScale; }
    void onTextScaleChanged(std::function<void()> handler) override
    {
        m_textScaleHandler = std::move(handler);
    }

    bool eventFilter(QObject *watched, QEvent *event) override;

private Q_SLOTS:
    void settingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    /// Values of the portal's `color-scheme`.
    enum class Scheme : uint { NoPreference = 0, Dark = 1, Light = 2 };

    void readSettings();
    void readSetting(const QString &group, const QString &key);
    void applySetting(const QString &group, const QString &key, const QVariant &value);
    void applyColorScheme(const QVariant &value);
    void update();
    void updateMotion();
    void updateTextScale();
    /// The factor of the screen, without what QT_SCALE_FACTOR asks for; 1 without an X server.
    static double reportedResolutionFactor();

    SessionBusLinux m_bus;
    Scheme m_scheme = Scheme::NoPreference;
    bool m_dark = false;
    ResolutionFactor m_resolutionFactor;
    /// GNOME's enable-animations.
    bool m_hasAnimations = true;
    /// KDE's factor of the duration of animations; 0 for none.
    double m_animationDuration = 1;
    bool m_reducesMotion = false;
    /// GNOME's text-scaling-factor.
    double m_textFactor = 1;
    /// Size of KDE's font in relation to its default.
    double m_fontFactor = 1;
    double m_textScale = 1;
    std::function<void()> m_schemeHandler;
    std::function<void()> m_motionHandler;
    std::function<void()> m_textScaleHandler;
};

} // namespace quellora
