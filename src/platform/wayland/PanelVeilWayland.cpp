#include "platform/wayland/PanelVeilWayland.h"

#include "base/Log.h"
#include "platform/wayland/PanelWindowWayland.h"

#include <QScreen>

#include <wayland-client.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace quellora {

namespace {

using namespace std::chrono_literals;

/// No frame is drawn while the screen is off or after the panel has been hidden.
constexpr auto frameLimit = 500ms;

} // namespace

struct PanelVeilWayland::Listeners
{
    static void syncDone(void *data, wl_callback *, uint32_t)
    {
        auto &veil = *static_cast<PanelVeilWayland *>(data);
        veil.m_sync.reset();
        if (const auto done = std::exchange(veil.m_done, nullptr))
            done();
    }
    static void frameDone(void *data, wl_callback *, uint32_t milliseconds)
    {
        auto &frame = *static_cast<Frame *>(data);
        frame.callback.reset();
        frame.time = milliseconds;
        frame.veil->report();
    }

    static constexpr wl_callback_listener sync{&syncDone};
    static constexpr wl_callback_listener frame{&frameDone};
};

PanelVeilWayland::PanelVeilWayland(const WaylandConnection &connection, PanelWindowWayland &panels,
                                   QObject *parent)
    : PanelVeil(parent), m_connection(connection), m_panels(panels)
{
    m_without.veil = this;
    m_with.veil = this;
    m_frameLimit.setSingleShot(true);
    m_frameLimit.setInterval(frameLimit);
    connect(&m_frameLimit, &QTimer::timeout, this, &PanelVeilWayland::reportNow);
}

PanelVeilWayland::~PanelVeilWayland() = default;

bool PanelVeilWayland::isNeeded() const
{
    return m_panels.screenWithPanel() != nullptr;
}

void PanelVeilWayland::cover(std::function<void()> done)
{
    reportNow();
    m_done = std::move(done);
    watch(m_without);
    m_isCovered = m_panels.cover();
    // The compositor answers when it has taken over the commit: its next picture shows it.
    m_sync.reset(wl_display_sync(m_connection.display()));
    wl_callback_add_listener(m_sync.get(), &Listeners::sync, this);
    // Later, so that the commit goes out together with what the caller requests now: the panel is
    // gone in one frame less.
    QMetaObject::invokeMethod(
        this, [this] { m_connection.flush(); }, Qt::QueuedConnection);
}

void PanelVeilWayland::uncover()
{
    m_sync.reset();
    m_done = nullptr;
    watch(m_with);
    m_panels.uncover();
    m_connection.flush();
}

void PanelVeilWayland::watch(Frame &frame)
{
    frame.callback.reset();
    frame.time.reset();
    wl_surface *surface = m_panels.panelSurface();
    const QScreen *screen = m_panels.screenWithPanel();
    if (!surface || !screen)
        return;
    m_framesPerSecond = screen->refreshRate();
    frame.callback.reset(wl_surface_frame(surface));
    wl_callback_add_listener(frame.callback.get(), &Listeners::frame, &frame);
}

void PanelVeilWayland::logDuration(qint64 milliseconds)
{
    if (!m_isCovered) {
        Log::event(QStringLiteral("[ScreenSource] WARNING: The panel is in the picture: the "
                                  "compositor cannot cover it"));
        return;
    }
    m_unlogged = milliseconds;
    m_frameLimit.start();
    report();
}

void PanelVeilWayland::report()
{
    // The later one tells that the other one will not be drawn any more.
    if (!m_with.callback)
        reportNow();
}

void PanelVeilWayland::reportNow()
{
    const std::optional<qint64> measured = std::exchange(m_unlogged, std::nullopt);
    if (!measured)
        return;
    m_frameLimit.stop();
    if (!m_without.time || !m_with.time || m_framesPerSecond <= 0) {
        Log::event(QStringLiteral("[ScreenSource] The panel was gone for about %1 ms (the "
                                  "compositor does not tell for how many frames)")
                       .arg(*measured));
        return;
    }
    // The clock may pass its largest value in between.
    const auto gone = std::max(static_cast<qint32>(*m_with.time - *m_without.time), 0);
    // Two frames may be drawn within one cycle of the screen, but not at the same time.
    const long frames = std::max(std::lround(gone * m_framesPerSecond / 1000), gone > 0 ? 1L : 0L);
    Log::event(QStringLiteral("[ScreenSource] The panel was gone for %1 %2 (%3 ms at %4 Hz)")
                   .arg(frames)
                   .arg(frames == 1 ? QStringLiteral("frame") : QStringLiteral("frames"))
                   .arg(gone)
                   .arg(QString::number(m_framesPerSecond, 'g', 4)));
}

} // namespace quellora
