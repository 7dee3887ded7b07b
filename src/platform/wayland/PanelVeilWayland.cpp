#include "platform/wayland/PanelVeilWayland.h"

#include "base/Log.h"
#include "platform/wayland/PanelWindowWayland.h"

#include <presentation-time-client.h>
#include <wayland-client.h>

#include <cmath>
#include <utility>

namespace quellora {

namespace {

/// Compositors do not report every commit.
constexpr int presentationLimitMs = 250;

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
    static void syncOutput(void *, struct wp_presentation_feedback *, wl_output *) {}
    static void presented(void *data, struct wp_presentation_feedback *, uint32_t secondsHigh,
                          uint32_t secondsLow, uint32_t nanoseconds, uint32_t refresh, uint32_t,
                          uint32_t, uint32_t)
    {
        auto &presentation = *static_cast<Presentation *>(data);
        const qint64 seconds = (qint64{secondsHigh} << 32) | secondsLow;
        presentation.time = seconds * 1'000'000'000 + nanoseconds;
        presentation.refresh = refresh;
        presentation.drop();
        presentation.veil->presented();
    }
    static void discarded(void *data, struct wp_presentation_feedback *)
    {
        auto &presentation = *static_cast<Presentation *>(data);
        presentation.drop();
        presentation.veil->presented();
    }

    static constexpr wl_callback_listener sync{&syncDone};
    static constexpr wp_presentation_feedback_listener feedback{&syncOutput, &presented,
                                                                &discarded};
};

void PanelVeilWayland::CallbackDeleter::operator()(wl_callback *callback) const
{
    wl_callback_destroy(callback);
}

void PanelVeilWayland::Presentation::drop()
{
    isOver = true;
    if (auto *old = std::exchange(feedback, nullptr))
        wp_presentation_feedback_destroy(old);
}

PanelVeilWayland::PanelVeilWayland(const WaylandConnection &connection, PanelWindowWayland &panels,
                                   QObject *parent)
    : PanelVeil(parent), m_connection(connection), m_panels(panels)
{
    m_presentationLimit.setSingleShot(true);
    m_presentationLimit.setInterval(presentationLimitMs);
    connect(&m_presentationLimit, &QTimer::timeout, this, [this] {
        m_without.drop();
        m_with.drop();
        presented();
    });
    m_without.veil = this;
    m_with.veil = this;
}

PanelVeilWayland::~PanelVeilWayland() = default;

bool PanelVeilWayland::isNeeded() const
{
    return m_panels.screenWithPanel() != nullptr;
}

void PanelVeilWayland::cover(std::function<void()> done)
{
    m_done = std::move(done);
    watch(m_without);
    m_panels.cover();
    // The compositor answers when it has taken over the commit: its next picture shows it.
    m_sync.reset(wl_display_sync(m_connection.display()));
    wl_callback_add_listener(m_sync.get(), &Listeners::sync, this);
    m_connection.flush();
}

void PanelVeilWayland::uncover()
{
    m_sync.reset();
    m_done = nullptr;
    watch(m_with);
    m_panels.uncover();
    m_connection.flush();
}

void PanelVeilWayland::watch(Presentation &presentation)
{
    presentation.drop();
    presentation.time.reset();
    wl_surface *surface = m_panels.panelSurface();
    if (!m_connection.presentation() || !surface)
        return;
    presentation.isOver = false;
    presentation.feedback = wp_presentation_feedback(m_connection.presentation(), surface);
    wp_presentation_feedback_add_listener(presentation.feedback, &Listeners::feedback,
                                          &presentation);
}

void PanelVeilWayland::logDuration(qint64 milliseconds)
{
    m_unlogged = milliseconds;
    m_presentationLimit.start();
    presented();
}

void PanelVeilWayland::presented()
{
    if (!m_unlogged || !m_without.isOver || !m_with.isOver)
        return;
    const qint64 milliseconds = *std::exchange(m_unlogged, std::nullopt);
    m_presentationLimit.stop();
    // A commit that was replaced before it was shown has no time: the panel was gone for no frame,
    // or the compositor does not tell.
    if (!m_without.time || !m_with.time || m_with.refresh <= 0)
        return PanelVeil::logDuration(milliseconds);
    const qint64 gone = *m_with.time - *m_without.time;
    Log::event(
        QStringLiteral("[ScreenSource] The panel was gone for %1 ms (%2 frames of %3 ms)")
            .arg(static_cast<double>(gone) / 1e6, 0, 'f', 1)
            .arg(std::lround(static_cast<double>(gone) / static_cast<double>(m_with.refresh)))
            .arg(static_cast<double>(m_with.refresh) / 1e6, 0, 'f', 1));
}

} // namespace quellora
