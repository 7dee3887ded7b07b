#include "platform/wayland/PointerFollower.h"

#include <QGuiApplication>
#include <QLineF>
#include <QScreen>

#include <linux/input-event-codes.h>
#include <relative-pointer-unstable-v1-client.h>
#include <wayland-client.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace quellora {

/// The callbacks of the protocol; the data is the follower.
struct PointerFollower::Listeners
{
    static PointerFollower &self(void *data) { return *static_cast<PointerFollower *>(data); }

    static void enter(void *data, wl_pointer *, uint32_t, wl_surface *, wl_fixed_t x, wl_fixed_t y)
    {
        self(data).resumeAt(QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y)));
    }
    // Not the end of a drag: a panel that crosses to another screen has a new surface there.
    static void leave(void *, wl_pointer *, uint32_t, wl_surface *) {}
    static void motion(void *, wl_pointer *, uint32_t, wl_fixed_t, wl_fixed_t) {}
    static void button(void *data, wl_pointer *, uint32_t, uint32_t, uint32_t button,
                       uint32_t state)
    {
        if (button != BTN_LEFT)
            return;
        self(data).m_isPressed = state == WL_POINTER_BUTTON_STATE_PRESSED;
        if (self(data).m_isPressed)
            self(data).m_early = {};
    }
    static void axis(void *, wl_pointer *, uint32_t, uint32_t, wl_fixed_t) {}
    static void frame(void *, wl_pointer *) {}
    static void axisSource(void *, wl_pointer *, uint32_t) {}
    static void axisStop(void *, wl_pointer *, uint32_t, uint32_t) {}
    static void axisDiscrete(void *, wl_pointer *, uint32_t, int32_t) {}
    // By name: later versions of the library have more members, for events of later versions of the
    // interface than the seat is bound with.
    static constexpr wl_pointer_listener pointer = [] {
        wl_pointer_listener listener{};
        listener.enter = &enter;
        listener.leave = &leave;
        listener.motion = &motion;
        listener.button = &button;
        listener.axis = &axis;
        listener.frame = &frame;
        listener.axis_source = &axisSource;
        listener.axis_stop = &axisStop;
        listener.axis_discrete = &axisDiscrete;
        return listener;
    }();

    static void relativeMotion(void *data, zwp_relative_pointer_v1 *, uint32_t, uint32_t,
                               wl_fixed_t dx, wl_fixed_t dy, wl_fixed_t, wl_fixed_t)
    {
        if (self(data).m_isPressed)
            self(data).move(QPointF(wl_fixed_to_double(dx), wl_fixed_to_double(dy)));
    }
    static constexpr zwp_relative_pointer_v1_listener movements{&relativeMotion};
};

PointerFollower::PointerFollower(const WaylandConnection &connection, QObject *parent)
    : QObject(parent), m_connection(connection)
{
    m_delivery.setSingleShot(true);
    m_delivery.setInterval(0);
    connect(&m_delivery, &QTimer::timeout, this, &PointerFollower::deliver);
    connect(&connection, &WaylandConnection::seatChanged, this, &PointerFollower::listen);
    listen();
}

PointerFollower::~PointerFollower() = default;

void PointerFollower::listen()
{
    const bool isPossible = m_connection.hasPointer() && m_connection.relativePointers();
    if (isPossible == (m_pointer != nullptr))
        return;
    if (!isPossible) {
        m_movements.reset();
        m_pointer.reset();
        m_isPressed = false;
        return;
    }
    m_pointer.reset(wl_seat_get_pointer(m_connection.seat()));
    wl_pointer_add_listener(m_pointer.get(), &Listeners::pointer, this);
    m_movements.reset(zwp_relative_pointer_manager_v1_get_relative_pointer(
        m_connection.relativePointers(), m_pointer.get()));
    zwp_relative_pointer_v1_add_listener(m_movements.get(), &Listeners::movements, this);
    m_connection.flush();
}

bool PointerFollower::start(const QPointF &from, std::function<void(QPointF)> onMoved)
{
    stop();
    if (!m_pointer)
        return false;
    m_onMoved = std::move(onMoved);
    m_from = from;
    m_position = from;
    const QPointF early = std::exchange(m_early, {});
    if (!early.isNull())
        move(early);
    return true;
}

void PointerFollower::awaitEnter(const QPointF &place)
{
    if (!m_onMoved)
        return;
    m_delivery.stop();
    m_place = place;
}

void PointerFollower::resumeAt(const QPointF &local)
{
    if (!m_place)
        return;
    m_position = *std::exchange(m_place, std::nullopt) + local;
    m_delivery.start();
}

void PointerFollower::stop()
{
    m_place.reset();
    if (m_delivery.isActive()) {
        m_delivery.stop();
        deliver();
    }
    m_onMoved = nullptr;
}

void PointerFollower::move(const QPointF &delta)
{
    if (!m_onMoved) {
        m_early += delta;
        return;
    }
    if (m_place)
        return;
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
