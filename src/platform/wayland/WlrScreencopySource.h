#pragma once

#include "platform/ScreenSource.h"
#include "platform/linux/PanelVeil.h"
#include "platform/wayland/WaylandConnection.h"

#include <QList>
#include <QObject>

#include <chrono>

class QScreen;

namespace quellora {

/// Pictures through the protocol zwlr_screencopy_manager_v1, which needs no permission.
/// Asynchronous: everything is driven by the compositor's events. The panel is covered in the frame
/// that is copied and uncovered as soon as the copy is there. Main thread only.
class WlrScreencopySource : public QObject, public ScreenSource
{
    Q_OBJECT
public:
    /// @param connection offers the protocol; like @p veil it outlives the object
    /// @param panelScreen the screen with the panel, or null: where the pointer is over other
    ///        windows is not known
    WlrScreencopySource(const WaylandConnection &connection, PanelVeil &veil,
                        std::function<QScreen *()> panelScreen,
                        std::chrono::milliseconds limit = std::chrono::seconds(5));
    ~WlrScreencopySource() override;

    QFuture<Picture> take(Area area) override;

private:
    class Shot;

    const WaylandConnection &m_connection;
    PanelVeil &m_veil;
    std::function<QScreen *()> m_panelScreen;
    std::chrono::milliseconds m_limit;
    QList<Shot *> m_shots;
};

} // namespace quellora
