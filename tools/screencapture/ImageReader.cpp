#include "ImageReader.h"

#include <xcb/shm.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quellora::screencapture {

namespace {

constexpr std::uint32_t allPlanes = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t stripLength = 512 * 1024;
constexpr std::size_t segmentLength = 2 * stripLength;

} // namespace

ImageReader::ImageReader(const XConnection &x) : m_x(x)
{
    if (x.extensions().sharedMemory)
        attach();
}

ImageReader::~ImageReader()
{
    if (m_shared == nullptr)
        return;
    munmap(m_shared, segmentLength);
    xcb_shm_detach(m_x.get(), m_segment);
}

void ImageReader::attach()
{
    const int descriptor = memfd_create("quellora-screencapture", MFD_CLOEXEC);
    if (descriptor < 0)
        return;
    void *memory = MAP_FAILED;
    if (ftruncate(descriptor, static_cast<off_t>(segmentLength)) == 0)
        memory = mmap(nullptr, segmentLength, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        close(descriptor);
        return;
    }
    m_shared = static_cast<std::byte *>(memory);
    m_segment = xcb_generate_id(m_x.get());
    xcb_shm_attach_fd(m_x.get(), m_segment, descriptor, 0); // takes ownership of the descriptor
}

std::optional<SourceImage> ImageReader::read(xcb_drawable_t drawable, const Rect &part,
                                             const PixelFormat &format)
{
    const std::size_t bytesPerLine = format.bytesPerLine(part.width);
    m_data = m_buffer.resize(bytesPerLine * static_cast<std::size_t>(part.height));
    if (!readShared(drawable, part, bytesPerLine) &&
        !readOverConnection(drawable, part, bytesPerLine))
        return std::nullopt;
    return SourceImage{m_data, bytesPerLine, format, part};
}

bool ImageReader::readShared(xcb_drawable_t drawable, const Rect &part, std::size_t bytesPerLine)
{
    if (m_shared == nullptr || bytesPerLine > stripLength)
        return false;
    xcb_connection_t *c = m_x.get();
    const int linesPerStrip = static_cast<int>(stripLength / bytesPerLine);
    const int strips = (part.height + linesPerStrip - 1) / linesPerStrip;
    const auto lines = [&](int strip) {
        return std::min(linesPerStrip, part.height - strip * linesPerStrip);
    };
    const auto offset = [](int strip) { return strip % 2 == 0 ? 0 : stripLength; };
    const auto request = [&](int strip) {
        return xcb_shm_get_image(c, drawable, static_cast<std::int16_t>(part.x),
                                 static_cast<std::int16_t>(part.y + strip * linesPerStrip),
                                 static_cast<std::uint16_t>(part.width),
                                 static_cast<std::uint16_t>(lines(strip)), allPlanes,
                                 XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment,
                                 static_cast<std::uint32_t>(offset(strip)));
    };
    std::array<xcb_shm_get_image_cookie_t, 2> cookies{};
    for (int strip = 0; strip < std::min(2, strips); ++strip)
        cookies[static_cast<std::size_t>(strip)] = request(strip);
    bool complete = true;
    for (int strip = 0; strip < strips; ++strip) {
        xcb_shm_get_image_cookie_t &cookie = cookies[static_cast<std::size_t>(strip % 2)];
        complete = takeReply(c, xcb_shm_get_image_reply, cookie) != nullptr && complete;
        if (complete)
            std::memcpy(m_data + static_cast<std::size_t>(strip * linesPerStrip) * bytesPerLine,
                        m_shared + offset(strip),
                        static_cast<std::size_t>(lines(strip)) * bytesPerLine);
        if (strip + 2 < strips) {
            cookie = request(strip + 2);
            xcb_flush(c);
        }
    }
    return complete;
}

bool ImageReader::readOverConnection(xcb_drawable_t drawable, const Rect &part,
                                     std::size_t bytesPerLine)
{
    const auto reply = takeReply(m_x.get(), xcb_get_image_reply,
                                 xcb_get_image(m_x.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable,
                                               static_cast<std::int16_t>(part.x),
                                               static_cast<std::int16_t>(part.y),
                                               static_cast<std::uint16_t>(part.width),
                                               static_cast<std::uint16_t>(part.height), allPlanes));
    const std::size_t needed = bytesPerLine * static_cast<std::size_t>(part.height);
    if (!reply || static_cast<std::size_t>(xcb_get_image_data_length(reply.get())) < needed)
        return false;
    std::memcpy(m_data, xcb_get_image_data(reply.get()), needed);
    return true;
}

} // namespace quellora::screencapture
