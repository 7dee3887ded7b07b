#pragma once

#include "platform/wayland/WaylandConnection.h"

#include <QImage>
#include <QRect>
#include <QString>

#include <tl/expected.hpp>

#include <functional>
#include <memory>

namespace quellora {

/// Memory that this process and the compositor share. The compositor cannot make it smaller.
class SharedPixels
{
public:
    /// Null if there is not enough memory.
    static std::unique_ptr<SharedPixels> create(std::size_t size);
    ~SharedPixels();
    SharedPixels(const SharedPixels &) = delete;
    SharedPixels &operator=(const SharedPixels &) = delete;

    uchar *data() const { return m_data; }
    std::size_t size() const { return m_size; }
    int descriptor() const { return m_descriptor; }

private:
    SharedPixels(int descriptor, uchar *data, std::size_t size)
        : m_descriptor(descriptor), m_data(data), m_size(size)
    {}

    int m_descriptor;
    uchar *m_data;
    std::size_t m_size;
};

/// How the compositor describes the pixels that it will copy.
struct FrameDescription
{
    /// A value of wl_shm.format.
    quint32 format = 0;
    quint32 width = 0;
    quint32 height = 0;
    quint32 stride = 0;

    /// The image format with the same layout in memory; opacity is ignored.
    /// @return why such pixels cannot be used, for the user in a sentence without a full stop
    tl::expected<QImage::Format, QString> imageFormat() const;
};

/// One copied screen.
struct CopiedScreen
{
    /// Owns its pixels; as the compositor has copied them.
    QImage image;
    /// Position and size on the desktop, in points.
    QRect place;
    /// The value of wl_output.transform.
    int transform = 0;
    bool isUpsideDown = false;

    /// The image as the user sees it. Thread-safe.
    QImage upright() const;
};

/// Puts screens together as they lie beside each other, at the highest of their scales; a single
/// one is only turned upright. Thread-safe; for worker threads.
/// @return a null image if it would be too large
QImage composeScreens(const QList<CopiedScreen> &screens);

/// One copy of an output through wlr-screencopy. Asynchronous: the caller hears from the event loop
/// when the pixels can be copied, orders the copy and hears when it is there. Main thread only.
class ScreenCopyFrame
{
public:
    struct Handlers
    {
        /// Called once: copy() may be called.
        std::function<void()> prepared;
        std::function<void()> copied;
        /// @param reason for the user, in a sentence without a full stop
        std::function<void(const QString &reason)> failed;
    };

    /// @param connection offers the protocol; outlives the object
    ScreenCopyFrame(const WaylandConnection &connection, wl_output *output, bool hasCursor,
                    Handlers handlers);
    ~ScreenCopyFrame();

    /// Orders the copy; applies to the output as it is after the requests made so far.
    void copy();
    /// The copied pixels; call once, after `copied`.
    QImage takeImage();
    bool isUpsideDown() const { return m_isUpsideDown; }

private:
    struct Listeners;
    void prepare();
    void fail(const QString &reason);

    const WaylandConnection &m_connection;
    Handlers m_handlers;
    FrameDescription m_description;
    QImage::Format m_imageFormat = QImage::Format_Invalid;
    bool m_isUpsideDown = false;
    bool m_isPrepared = false;
    std::unique_ptr<SharedPixels> m_pixels;
    // Destroyed before the pixels.
    WaylandPtr<wl_buffer> m_buffer;
    WaylandPtr<zwlr_screencopy_frame_v1> m_frame;
};

} // namespace quellora
