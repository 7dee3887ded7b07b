#pragma once

#include "platform/linux/PanelVeil.h"
#include "platform/wayland/WaylandConnection.h"

#include <QTimer>

#include <optional>

namespace quellora {

class PanelWindowWayland;

/// Covers the panel's surface with its transparent corner pixel. The log says for how many frames
/// the panel was gone, from the frames that the compositor reports as drawn: the first one without
/// and the first one with the panel. Main thread only.
class PanelVeilWayland : public PanelVeil
{
    Q_OBJECT
public:
    /// Both must outlive the object.
    PanelVeilWayland(const WaylandConnection &connection, PanelWindowWayland &panels,
                     QObject *parent = nullptr);
    ~PanelVeilWayland() override;

protected:
    bool isNeeded() const override;
    void cover(std::function<void()> done) override;
    void uncover() override;
    void logDuration(qint64 milliseconds) override;

private:
    struct Listeners;
    /// The frame that shows one commit of the panel.
    struct Frame
    {
        PanelVeilWayland *veil = nullptr;
        WaylandPtr<wl_callback> callback;
        /// Milliseconds of the compositor's clock; unset until it was drawn.
        std::optional<quint32> time;
    };

    /// Asks for the frame that shows the panel's next commit.
    void watch(Frame &frame);
    /// Logs the duration if all that can be known of it is known.
    void report();
    /// Logs the duration with what is known of it.
    void reportNow();

    const WaylandConnection &m_connection;
    PanelWindowWayland &m_panels;
    WaylandPtr<wl_callback> m_sync;
    std::function<void()> m_done;
    Frame m_without;
    Frame m_with;
    bool m_isCovered = false;
    /// Of the panel's screen.
    double m_framesPerSecond = 0;
    std::optional<qint64> m_unlogged;
    QTimer m_frameLimit;
};

} // namespace quellora
