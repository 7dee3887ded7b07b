#include "ImageReader.h"

#include <xcb/shm.h>

#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quellora::screencapture {

namespace {

constexpr std::uint32_t allPlanes = std::numeric_limits<std::uint32_t>::max();

} // namespace

ImageReader::ImageReader(const XConnection &x, std::size_t capacity) : m_x(x)
{
    if (x.extensions().sharedMemory && capacity > 0)
        attach(capacity);
}

ImageReader::~ImageReader()
{
    detach();
}

void ImageReader::attach(std::size_t capacity)
{
    const int descriptor = memfd_create("quellora-screencapture", MFD_CLOEXEC);
    if (descriptor < 0)
        return;
    void *memory = MAP_FAILED;
    if (ftruncate(descriptor, static_cast<off_t>(capacity)) == 0)
        // Populated here, so that the server does not pay for fresh pages while it is grabbed.
        memory = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                      descriptor, 0);
    if (memory == MAP_FAILED) {
        close(descriptor);
        return;
    }
    m_memory = static_cast<std::byte *>(memory);
    m_capacity = capacity;
    m_segment = xcb_generate_id(m_x.get());
    xcb_shm_attach_fd(m_x.get(), m_segment, descriptor, 0); // takes the descriptor over
}

void ImageReader::detach()
{
    if (m_memory == nullptr)
        return;
    munmap(m_memory, m_capacity);
    m_memory = nullptr;
    xcb_shm_detach(m_x.get(), m_segment);
}

std::optional<SourceImage> ImageReader::read(xcb_drawable_t drawable, const Rect &part,
                                             const PixelFormat &format)
{
    const auto x = static_cast<std::int16_t>(part.x);
    const auto y = static_cast<std::int16_t>(part.y);
    const auto width = static_cast<std::uint16_t>(part.width);
    const auto height = static_cast<std::uint16_t>(part.height);
    const std::size_t bytesPerLine = format.bytesPerLine(part.width);
    const std::size_t needed = bytesPerLine * static_cast<std::size_t>(part.height);
    m_lastWasShared = false;

    if (m_memory != nullptr && needed <= m_capacity) {
        const auto reply =
            takeReply(m_x.get(), xcb_shm_get_image_reply,
                      xcb_shm_get_image(m_x.get(), drawable, x, y, width, height, allPlanes,
                                        XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment, 0));
        if (reply) {
            m_lastWasShared = true;
            return SourceImage{m_memory, bytesPerLine, format, part};
        }
    }
    m_reply = takeReply(m_x.get(), xcb_get_image_reply,
                        xcb_get_image(m_x.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, x, y, width,
                                      height, allPlanes));
    if (!m_reply || static_cast<std::size_t>(xcb_get_image_data_length(m_reply.get())) < needed)
        return std::nullopt;
    return SourceImage{reinterpret_cast<const std::byte *>(xcb_get_image_data(m_reply.get())),
                       bytesPerLine, format, part};
}

} // namespace quellora::screencapture
