#include "platform/wayland/ScreenCopyFrame.h"

#include <QPainter>
#include <QTransform>

#include <wayland-client.h>
#include <wlr-screencopy-unstable-v1-client.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quellora {
namespace {

/// Pixels per side of the largest picture.
constexpr int maxSide = 32'767;
constexpr qint64 maxPixels = 512LL * 1024 * 1024;

/// The value of a four-character code.
constexpr quint32 code(char a, char b, char c, char d)
{
    return static_cast<quint32>(a) | static_cast<quint32>(b) << 8 | static_cast<quint32>(c) << 16 |
           static_cast<quint32>(d) << 24;
}

bool isTenBit(quint32 format)
{
    return format == code('X', 'R', '3', '0') || format == code('A', 'R', '3', '0') ||
           format == code('X', 'B', '3', '0') || format == code('A', 'B', '3', '0');
}

} // namespace

std::unique_ptr<SharedPixels> SharedPixels::create(std::size_t size)
{
    const int descriptor = ::memfd_create("quellora-picture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (descriptor < 0)
        return nullptr;
    void *data = MAP_FAILED;
    if (::ftruncate(descriptor, static_cast<off_t>(size)) == 0 &&
        ::fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (data == MAP_FAILED) {
        ::close(descriptor);
        return nullptr;
    }
    return std::unique_ptr<SharedPixels>(
        new SharedPixels(descriptor, static_cast<uchar *>(data), size));
}

SharedPixels::~SharedPixels()
{
    ::munmap(m_data, m_size);
    ::close(m_descriptor);
}

tl::expected<QImage::Format, QString> FrameDescription::imageFormat() const
{
    const auto refuse = [](const QString &reason) {
        return tl::unexpected(
            QStringLiteral("The compositor offers a picture in an unknown form: ") + reason);
    };
    if (Q_BYTE_ORDER != Q_LITTLE_ENDIAN)
        return refuse(QStringLiteral("for another processor"));
    QImage::Format result = QImage::Format_Invalid;
    if (format == WL_SHM_FORMAT_ARGB8888 || format == WL_SHM_FORMAT_XRGB8888)
        result = QImage::Format_RGB32;
    else if (format == WL_SHM_FORMAT_ABGR8888 || format == WL_SHM_FORMAT_XBGR8888)
        result = QImage::Format_RGBX8888;
    else if (isTenBit(format))
        return refuse(QStringLiteral("its colours have 10 bits"));
    else
        return refuse(QStringLiteral("format %1").arg(format, 8, 16, QLatin1Char('0')));
    if (width == 0 || height == 0 || width > maxSide || height > maxSide || stride < width * 4 ||
        stride % 4 != 0 || qint64{stride} * height > maxPixels * 4)
        return refuse(QStringLiteral("%1 × %2 pixels in rows of %3 bytes")
                          .arg(width)
                          .arg(height)
                          .arg(stride));
    return result;
}

QImage CopiedScreen::upright() const
{
    QImage result = isUpsideDown ? image.mirrored(false, true) : image;
    // The output shows its contents turned counter-clockwise, and flipped before that.
    if (const int turns = transform & 3)
        result = result.transformed(QTransform().rotate(90.0 * turns));
    if ((transform & 4) != 0)
        result = result.mirrored(true, false);
    return result;
}

QImage composeScreens(const QList<CopiedScreen> &screens)
{
    if (screens.size() == 1)
        return screens.first().upright();
    QList<QImage> images;
    QRect all;
    double scale = 0;
    for (const CopiedScreen &screen : screens) {
        images << screen.upright();
        all |= screen.place;
        if (!screen.place.isEmpty())
            scale =
                std::max(scale, images.last().width() / static_cast<double>(screen.place.width()));
    }
    const double width = std::round(all.width() * scale);
    const double height = std::round(all.height() * scale);
    if (width < 1 || height < 1 || width > maxSide || height > maxSide ||
        width * height > static_cast<double>(maxPixels))
        return {};
    QImage result(static_cast<int>(width), static_cast<int>(height), QImage::Format_RGB32);
    if (result.isNull())
        return {};
    result.fill(Qt::black);
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (qsizetype i = 0; i < screens.size(); ++i) {
        const QRect place = screens.at(i).place.translated(-all.topLeft());
        const QPoint from(static_cast<int>(std::lround(place.x() * scale)),
                          static_cast<int>(std::lround(place.y() * scale)));
        const QPoint to(static_cast<int>(std::lround((place.x() + place.width()) * scale)),
                        static_cast<int>(std::lround((place.y() + place.height()) * scale)));
        painter.drawImage(QRect(from, QSize(to.x() - from.x(), to.y() - from.y())), images.at(i));
    }
    return result;
}

struct ScreenCopyFrame::Listeners
{
    static ScreenCopyFrame &self(void *data) { return *static_cast<ScreenCopyFrame *>(data); }

    static void buffer(void *data, zwlr_screencopy_frame_v1 *frame, uint32_t format, uint32_t width,
                       uint32_t height, uint32_t stride)
    {
        self(data).m_description = {format, width, height, stride};
        // From version 3 on, another event follows the last kind of buffer.
        if (zwlr_screencopy_frame_v1_get_version(frame) < 3)
            self(data).prepare();
    }
    static void flags(void *data, zwlr_screencopy_frame_v1 *, uint32_t flags)
    {
        self(data).m_isUpsideDown = (flags & ZWLR_SCREENCOPY_FRAME_V1_FLAGS_Y_INVERT) != 0;
    }
    static void ready(void *data, zwlr_screencopy_frame_v1 *, uint32_t, uint32_t, uint32_t)
    {
        self(data).m_frame.reset();
        // A copy: the handler may destroy this object.
        const auto handler = self(data).m_handlers.copied;
        handler();
    }
    static void failed(void *data, zwlr_screencopy_frame_v1 *)
    {
        self(data).fail(QStringLiteral("The compositor has not taken a picture of the screen"));
    }
    static void damage(void *, zwlr_screencopy_frame_v1 *, uint32_t, uint32_t, uint32_t, uint32_t)
    {}
    static void dmabuf(void *, zwlr_screencopy_frame_v1 *, uint32_t, uint32_t, uint32_t) {}
    static void bufferDone(void *data, zwlr_screencopy_frame_v1 *) { self(data).prepare(); }

    static constexpr zwlr_screencopy_frame_v1_listener frame{&buffer, &flags,  &ready,     &failed,
                                                             &damage, &dmabuf, &bufferDone};
};

ScreenCopyFrame::ScreenCopyFrame(const WaylandConnection &connection, wl_output *output,
                                 bool hasCursor, Handlers handlers)
    : m_connection(connection)
    , m_handlers(std::move(handlers))
    , m_frame(zwlr_screencopy_manager_v1_capture_output(connection.screencopy(), hasCursor ? 1 : 0,
                                                        output))
{
    zwlr_screencopy_frame_v1_add_listener(m_frame.get(), &Listeners::frame, this);
}

ScreenCopyFrame::~ScreenCopyFrame() = default;

void ScreenCopyFrame::prepare()
{
    if (std::exchange(m_isPrepared, true))
        return;
    const auto format = m_description.imageFormat();
    if (!format)
        return fail(format.error());
    m_imageFormat = *format;
    const std::size_t size = std::size_t{m_description.stride} * m_description.height;
    m_pixels = SharedPixels::create(size);
    // The protocol counts bytes in 31 bits.
    if (!m_pixels || size > static_cast<std::size_t>(INT32_MAX))
        return fail(QStringLiteral("There is not enough memory for a picture of the screen"));
    const WaylandPtr<wl_shm_pool> pool(
        wl_shm_create_pool(m_connection.shm(), m_pixels->descriptor(), static_cast<int32_t>(size)));
    m_buffer.reset(wl_shm_pool_create_buffer(
        pool.get(), 0, static_cast<int32_t>(m_description.width),
        static_cast<int32_t>(m_description.height), static_cast<int32_t>(m_description.stride),
        m_description.format));
    const auto handler = m_handlers.prepared;
    handler();
}

void ScreenCopyFrame::copy()
{
    zwlr_screencopy_frame_v1_copy(m_frame.get(), m_buffer.get());
}

QImage ScreenCopyFrame::takeImage()
{
    m_buffer.reset();
    SharedPixels *pixels = m_pixels.release();
    return QImage(
        pixels->data(), static_cast<int>(m_description.width),
        static_cast<int>(m_description.height), static_cast<qsizetype>(m_description.stride),
        m_imageFormat, [](void *owner) { delete static_cast<SharedPixels *>(owner); }, pixels);
}

void ScreenCopyFrame::fail(const QString &reason)
{
    m_frame.reset();
    const auto handler = m_handlers.failed;
    handler(reason);
}

} // namespace quellora
