#pragma once

#include "platform/wayland/WaylandConnection.h"

#include <QObject>
#include <QPointF>
#include <QRect>
#include <QTimer>

#include <functional>
#include <optional>

namespace quellora {

/// Follows the pointer while a window moves beneath it: the positions in mouse events are relative
/// to the window and belong to different places of it, depending on the compositor (protocol
/// zwp_relative_pointer_v1). Main thread only.
///
/// It listens before a drag begins and counts from the press: the application learns of a press
/// after the compositor may already have reported the first movements.
class PointerFollower : public QObject
{
    Q_OBJECT
public:
    explicit PointerFollower(const WaylandConnection &connection, QObject *parent = nullptr);
    ~PointerFollower() override;

    /// Calls @p onMoved with the pointer's offset since the last press of its first button, in
    /// points, until that button's release or stop().
    /// @param from the pointer's position on the desktop at that press
    /// @return false if the compositor does not report movements, or there is no pointer
    bool start(const QPointF &from, std::function<void(QPointF)> onMoved);
    /// The window has a new surface at this place of the desktop. The compositor reports no
    /// movements until the pointer enters it, and goes on from there.
    void awaitEnter(const QPointF &place);
    /// Delivers what has not been delivered yet.
    void stop();

    /// Where the compositor stops the pointer on its way to @p position: the nearest point of the
    /// screens.
    static QPointF keptOn(const QList<QRect> &screens, const QPointF &position);

private:
    struct Listeners;
    void listen();
    void resumeAt(const QPointF &local);
    void move(const QPointF &delta);
    void deliver();

    const WaylandConnection &m_connection;
    WaylandPtr<wl_pointer> m_pointer;
    WaylandPtr<zwp_relative_pointer_v1> m_movements;
    std::function<void(QPointF)> m_onMoved;
    bool m_isPressed = false;
    /// The movements since the press that nobody has asked for yet.
    QPointF m_early;
    /// Positions on the desktop: at the press, and now.
    QPointF m_from;
    QPointF m_position;
    /// Of the surface that the pointer has yet to enter.
    std::optional<QPointF> m_place;
    /// Joins the movements that arrive together.
    QTimer m_delivery;
};

} // namespace quellora
