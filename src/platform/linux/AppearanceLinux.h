#pragma once

#include "platform/Platform.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusVariant>
#include <QObject>

class QDBusPendingCallWatcher;

namespace quellora {

/// The desktop portal's `color-scheme`, else the lightness of the palette; and its
/// `enable-animations`, else movement as designed.
///
/// Asks the portal without waiting: until it answers, and when it has no preference, the palette
/// counts and everything moves. Main thread only.
class AppearanceLinux : public QObject, public Appearance
{
    Q_OBJECT
public:
    /// @param busAddress session bus; empty when there is none
    explicit AppearanceLinux(const QString &busAddress = SessionBusLinux::address());

    bool isDark() const override { return m_dark; }
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }
    bool reducesMotion() const override { return m_reducesMotion; }
    void onMotionChanged(std::function<void()> handler) override
    {
        m_motionHandler = std::move(handler);
    }

    bool eventFilter(QObject *watched, QEvent *event) override;

private Q_SLOTS:
    void settingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    /// Values of the portal's setting.
    enum class Scheme : uint { NoPreference = 0, Dark = 1, Light = 2 };

    void askPortal();
    void ask(const QString &group, const QString &key);
    void take(const QString &group, const QString &key, const QVariant &value);
    void setScheme(const QVariant &value);
    void setAnimated(const QVariant &value);
    void update();

    SessionBusLinux m_bus;
    Scheme m_scheme = Scheme::NoPreference;
    bool m_dark = false;
    bool m_reducesMotion = false;
    std::function<void()> m_handler;
    std::function<void()> m_motionHandler;
};

} // namespace quellora
