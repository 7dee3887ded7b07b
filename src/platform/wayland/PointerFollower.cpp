#include "platform/wayland/PointerFollower.h"

#include <QGuiApplication>
#include <QLineF>
#include <QScreen>

#include <relative-pointer-unstable-v1-client.h>
#include <wayland-client.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace quellora {

/// The callbacks of the protocol; the data is the follower.
struct PointerFollower::Listeners
{
    static void motion(void *data, zwp_relative_pointer_v1 *, uint32_t, uint32_t, wl_fixed_t dx,
                       wl_fixed_t dy, wl_fixed_t, wl_fixed_t)
    {
        static_cast<PointerFollower *>(data)->move(
            QPointF(wl_fixed_to_double(dx), wl_fixed_to_double(dy)));
    }
    static constexpr zwp_relative_pointer_v1_listener pointer{&motion};
};

PointerFollower::PointerFollower(const WaylandConnection &connection, QObject *parent)
    : QObject(parent), m_connection(connection)
{
    m_delivery.setSingleShot(true);
    m_delivery.setInterval(0);
    connect(&m_delivery, &QTimer::timeout, this, &PointerFollower::deliver);
}

PointerFollower::~PointerFollower() = default;

bool PointerFollower::isAvailable() const
{
    return m_connection.relativePointers() && WaylandConnection::toolkitPointer();
}

bool PointerFollower::start(const QPointF &from, std::function<void(QPointF)> onMoved)
{
    stop();
    if (!isAvailable())
        return false;
    m_pointer.reset(zwp_relative_pointer_manager_v1_get_relative_pointer(
        m_connection.relativePointers(), WaylandConnection::toolkitPointer()));
    zwp_relative_pointer_v1_add_listener(m_pointer.get(), &Listeners::pointer, this);
    m_connection.flush();
    m_onMoved = std::move(onMoved);
    m_from = from;
    m_position = from;
    return true;
}

void PointerFollower::stop()
{
    if (m_delivery.isActive()) {
        m_delivery.stop();
        deliver();
    }
    m_pointer.reset();
    m_onMoved = nullptr;
}

void PointerFollower::move(const QPointF &delta)
{
    QList<QRect> areas;
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (const QScreen *screen : screens)
        areas.append(screen->geometry());
    m_position = keptOn(areas, m_position + delta);
    m_delivery.start();
}

void PointerFollower::deliver()
{
    // A copy: the handler may call stop().
    if (const auto onMoved = m_onMoved)
        onMoved(m_position - m_from);
}

QPointF PointerFollower::keptOn(const QList<QRect> &screens, const QPointF &position)
{
    std::optional<QPointF> nearest;
    for (const QRect &screen : screens) {
        const QPointF inside(
            std::clamp(position.x(), double(screen.left()), double(screen.right())),
            std::clamp(position.y(), double(screen.top()), double(screen.bottom())));
        if (!nearest || QLineF(position, inside).length() < QLineF(position, *nearest).length())
            nearest = inside;
    }
    return nearest.value_or(position);
}

} // namespace quellora
