#pragma once

#include "platform/Platform.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusVariant>
#include <QObject>

class QDBusPendingCallWatcher;

namespace quellora {

/// The desktop portal's `color-scheme` and `enable-animations` settings.
///
/// The portal is queried asynchronously. Until it replies, and if it has no preference, the scheme
/// follows the lightness of the palette and motion is not reduced. Main thread only.
class AppearanceLinux : public QObject, public Appearance
{
    Q_OBJECT
public:
    /// @param busAddress address of the session bus; empty if there is none
    explicit AppearanceLinux(const QString &busAddress = SessionBusLinux::address());

    bool isDark() const override { return m_dark; }
    void onChanged(std::function<void()> handler) override { m_schemeHandler = std::move(handler); }
    bool reducesMotion() const override { return m_reducesMotion; }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_motionHandler = std::move(handler);
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
    void applyAnimations(const QVariant &value);
    void update();

    SessionBusLinux m_bus;
    Scheme m_scheme = Scheme::NoPreference;
    bool m_dark = false;
    bool m_reducesMotion = false;
    std::function<void()> m_schemeHandler;
    std::function<void()> m_motionHandler;
};

} // namespace quellora
