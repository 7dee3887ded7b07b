#pragma once

#include "platform/wayland/WaylandProxy.h"

#include <QByteArray>
#include <QObject>
#include <QPoint>
#include <QSize>
#include <QString>

#include <memory>
#include <vector>

class QScreen;
class QWindow;
struct wl_display;

namespace quellora {

/// The interfaces of the compositor that the port uses besides the toolkit's own, bound through a
/// registry of its own on the toolkit's connection.
///
/// A bound interface and what is created from it sends its events to the connection's default
/// queue: the toolkit dispatches it on the main thread. For a reply that must be awaited without
/// dispatching the toolkit's events, create the object through waiting() and call roundTrip().
/// Every interface but the compositor and the shared memory may be missing. Main thread only;
/// destroy before the application object.
class WaylandConnection : public QObject
{
    Q_OBJECT
public:
    /// A screen as the compositor describes it.
    struct Output
    {
        WaylandPtr<wl_output> proxy;
        quint32 global = 0;
        /// As in QScreen::name(); empty if the compositor does not tell.
        QString name;
        /// The value of wl_output.transform: how the pixels of a picture are turned.
        int transform = 0;
        int scale = 1;
        /// Pixels, before the transform.
        QSize mode;
    };

    /// A proxy that creates objects on the private queue. Destroy it after its last request.
    template <typename T>
    struct WrapperDeleter
    {
        void operator()(T *wrapper) const { destroyWrapper(wrapper); }
    };
    template <typename T>
    using Waiting = std::unique_ptr<T, WrapperDeleter<T>>;

    /// The application's connection; null if it does not run on Wayland.
    static std::unique_ptr<WaylandConnection> current();
    /// Binds the interfaces: two round trips.
    /// @param display must outlive the object
    explicit WaylandConnection(wl_display *display);
    ~WaylandConnection() override;

    wl_display *display() const { return m_display; }
    wl_compositor *compositor() const { return m_compositor.get(); }
    wl_shm *shm() const { return m_shm.get(); }
    zwlr_layer_shell_v1 *layerShell() const { return m_layerShell.get(); }
    zwlr_screencopy_manager_v1 *screencopy() const { return m_screencopy.get(); }
    wp_viewporter *viewporter() const { return m_viewporter.get(); }
    zwp_relative_pointer_manager_v1 *relativePointers() const { return m_relativePointers.get(); }

    /// The first seat.
    wl_seat *seat() const { return m_seat.get(); }
    bool hasKeyboard() const { return m_hasKeyboard; }
    bool hasPointer() const { return m_hasPointer; }

    const std::vector<Output> &outputs() const { return m_outputs; }
    /// The description of a screen; null if there is none by its name.
    const Output *output(const QScreen &screen) const;

    /// The toolkit's own objects; null if there is none.
    static wl_surface *surface(QWindow &window);
    static wl_output *toolkitOutput(QScreen &screen);

    /// Objects made through the wrapper send their events to the private queue until deliver().
    template <typename T>
    Waiting<T> waiting(T *proxy) const
    {
        return Waiting<T>(static_cast<T *>(wrapper(proxy)));
    }
    /// Sends all requests and waits until the compositor has handled them; dispatches the events of
    /// the private queue only.
    /// @return false if the connection is lost
    bool roundTrip() const;
    /// From here on the events of @p proxy are delivered by the event loop.
    void deliver(void *proxy) const;
    /// Sends the requests made so far.
    void flush() const;

Q_SIGNALS:
    /// outputs() has changed.
    void outputsChanged();
    /// hasKeyboard() or hasPointer() may have changed.
    void seatChanged();

private:
    struct Listeners;

    void *wrapper(void *proxy) const;
    static void destroyWrapper(void *wrapper);
    void bind(quint32 name, const QByteArray &interface, quint32 version);
    void remove(quint32 name);
    Output *find(wl_output *proxy);
    static void retire(Output &output);

    wl_display *m_display;
    // Before the proxies, which are destroyed first.
    WaylandPtr<wl_event_queue> m_queue;
    WaylandPtr<wl_registry> m_registry;
    WaylandPtr<wl_compositor> m_compositor;
    WaylandPtr<wl_shm> m_shm;
    WaylandPtr<wl_seat> m_seat;
    WaylandPtr<zwlr_layer_shell_v1> m_layerShell;
    WaylandPtr<zwlr_screencopy_manager_v1> m_screencopy;
    WaylandPtr<wp_viewporter> m_viewporter;
    WaylandPtr<zwp_relative_pointer_manager_v1> m_relativePointers;
    std::vector<Output> m_outputs;
    bool m_hasKeyboard = false;
    bool m_hasPointer = false;
};

} // namespace quellora
