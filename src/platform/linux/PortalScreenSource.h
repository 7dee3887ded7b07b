#pragma once

#include "platform/ScreenLayout.h"
#include "platform/ScreenSource.h"
#include "platform/linux/PanelVeil.h"
#include "platform/linux/PortalPermission.h"
#include "platform/linux/PortalPicture.h"
#include "platform/linux/SessionBusLinux.h"

#include <QObject>
#include <QStringList>

#include <chrono>

namespace quellora {

/// Pictures from the desktop portal org.freedesktop.portal.Screenshot. The desktop asks the user
/// for permission at the first picture. A picture shows all screens and arrives as a file, which is
/// removed; one screen is cut out. All calls are asynchronous, files are read on a worker thread.
/// Main thread only.
class PortalScreenSource : public QObject, public ScreenSource
{
    Q_OBJECT
public:
    struct Limits
    {
        /// After this time the desktop is probably asking the user: the panel is shown again, and
        /// the picture is taken once more when the user has agreed.
        std::chrono::milliseconds panelGone = std::chrono::seconds(3);
        /// Time for one picture, including the user's answer.
        std::chrono::milliseconds answer = std::chrono::minutes(2);
    };

    /// @param veil takes the panel out of the pictures; outlives the object
    /// @param layout the screens when a picture is taken
    /// @param busAddress address of the session bus; empty if there is none
    PortalScreenSource(PanelVeil &veil, std::function<ScreenLayout()> layout,
                       const QString &busAddress, Limits limits);
    PortalScreenSource(PanelVeil &veil, std::function<ScreenLayout()> layout,
                       const QString &busAddress = SessionBusLinux::address())
        : PortalScreenSource(veil, std::move(layout), busAddress, Limits())
    {}
    ~PortalScreenSource() override;

    QFuture<Picture> take(Area area) override;
    Access access() const override { return m_permission.access(); }
    QString advice() const override;
    void onAccessChanged(std::function<void()> handler) override;
    QFuture<Access> ask() override;

private:
    class Shot;
    enum class BusState { Connecting, Connected, Failed };

    Failure failure(Access access, const QString &reason) const;

    PanelVeil &m_veil;
    std::function<ScreenLayout()> m_layout;
    Limits m_limits;
    BusState m_busState = BusState::Connecting;
    SessionBusLinux m_bus;
    PortalPermission m_permission;
    std::function<void()> m_handler;
    QList<Shot *> m_shots;
};

} // namespace quellora
