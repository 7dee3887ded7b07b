#pragma once

#include "platform/linux/PanelVeil.h"
#include "platform/wayland/WaylandConnection.h"

#include <QTimer>

#include <memory>
#include <optional>

struct wl_callback;
struct wp_presentation_feedback;

namespace quellora {

class PanelWindowWayland;

/// Covers the panel's surface with its transparent corner pixel. Where the compositor tells when it
/// has presented a commit, the log says for how many frames the panel was gone. Main thread only.
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
    /// When one commit of the panel was presented.
    struct Presentation
    {
        PanelVeilWayland *veil = nullptr;
        wp_presentation_feedback *feedback = nullptr;
        /// Nanoseconds; unset until it was presented.
        std::optional<qint64> time;
        qint64 refresh = 0;
        bool isOver = true;

        ~Presentation() { drop(); }
        void drop();
    };
    struct CallbackDeleter
    {
        void operator()(wl_callback *callback) const;
    };

    /// Asks when the panel's next commit is presented.
    void watch(Presentation &presentation);
    void presented();

    const WaylandConnection &m_connection;
    PanelWindowWayland &m_panels;
    std::unique_ptr<wl_callback, CallbackDeleter> m_sync;
    std::function<void()> m_done;
    Presentation m_without;
    Presentation m_with;
    std::optional<qint64> m_unlogged;
    QTimer m_presentationLimit;
};

} // namespace quellora
