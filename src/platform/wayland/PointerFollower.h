#pragma once

#include "platform/wayland/WaylandConnection.h"

#include <QObject>
#include <QPointF>
#include <QRect>
#include <QTimer>

#include <functional>

namespace quellora {

/// Follows the pointer while a window moves beneath it: the positions in mouse events are relative
/// to the window and belong to different places of it, depending on the compositor (protocol
/// zwp_relative_pointer_v1). Main thread only.
class PointerFollower : public QObject
{
    Q_OBJECT
public:
    explicit PointerFollower(const WaylandConnection &connection, QObject *parent = nullptr);
    ~PointerFollower() override;

    bool isAvailable() const;
    /// Calls @p onMoved with the pointer's offset since this call, in points, until stop().
    /// @param from the pointer's position on the desktop
    /// @return false if the compositor does not report movements, or there is no pointer
    bool start(const QPointF &from, std::function<void(QPointF)> onMoved);
    /// Delivers what has not been delivered yet.
    void stop();

    /// Where the compositor stops the pointer on its way to @p position: the nearest point of the
    /// screens.
    static QPointF keptOn(const QList<QRect> &screens, const QPointF &position);

private:
    struct Listeners;
    void move(const QPointF &delta);
    void deliver();

    const WaylandConnection &m_connection;
    WaylandPtr<zwp_relative_pointer_v1> m_pointer;
    std::function<void(QPointF)> m_onMoved;
    QPointF m_from;
    QPointF m_position;
    /// Joins the movements that arrive together.
    QTimer m_delivery;
};

} // namespace quellora
