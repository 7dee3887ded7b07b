#include "Screens.h"

#include "protocols/screen-copy.h"

#include <sys/mman.h>
#include <unistd.h>

#include <fstream>

namespace quellora {
namespace {

/// What the compositor said about one picture.
struct Frame
{
    uint32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;
    bool isUpsideDown = false;
    bool isReady = false;
    bool hasFailed = false;
};

const zwlr_screencopy_frame_v1_listener frameListener{
    [](void *data, zwlr_screencopy_frame_v1 *, uint32_t format, uint32_t width, uint32_t height,
       uint32_t stride) {
        auto *frame = static_cast<Frame *>(data);
        frame->format = format;
        frame->width = width;
        frame->height = height;
        frame->stride = stride;
    },
    [](void *data, zwlr_screencopy_frame_v1 *, uint32_t flags) {
        static_cast<Frame *>(data)->isUpsideDown = flags & 1U;
    },
    [](void *data, zwlr_screencopy_frame_v1 *, uint32_t, uint32_t, uint32_t) {
        static_cast<Frame *>(data)->isReady = true;
    },
    [](void *data, zwlr_screencopy_frame_v1 *) { static_cast<Frame *>(data)->hasFailed = true; },
};

bool writePicture(const Frame &frame, const unsigned char *pixels, const std::string &path)
{
    const bool startsWithRed =
        frame.format == WL_SHM_FORMAT_XBGR8888 || frame.format == WL_SHM_FORMAT_ABGR8888;
    std::string rows;
    rows.reserve(size_t(frame.width) * frame.height * 3);
    for (uint32_t y = 0; y < frame.height; ++y) {
        const uint32_t row = frame.isUpsideDown ? frame.height - 1 - y : y;
        for (uint32_t x = 0; x < frame.width; ++x) {
            const unsigned char *pixel = pixels + size_t(row) * frame.stride + size_t(x) * 4;
            rows += static_cast<char>(pixel[startsWithRed ? 0 : 2]);
            rows += static_cast<char>(pixel[1]);
            rows += static_cast<char>(pixel[startsWithRed ? 2 : 0]);
        }
    }
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << frame.width << ' ' << frame.height << "\n255\n" << rows;
    file.close();
    return !file.fail();
}

} // namespace

void Screens::setManager(const Global &global)
{
    m_manager = static_cast<zwlr_screencopy_manager_v1 *>(
        wl_registry_bind(global.registry, global.name, &zwlr_screencopy_manager_v1_interface, 1));
}

std::string Screens::save(size_t output, const std::string &path)
{
    if (!m_manager || !m_memory)
        return "the compositor takes no pictures";
    if (output >= m_outputs.size())
        return "there is no such output";
    Frame frame;
    auto *request = zwlr_screencopy_manager_v1_capture_output(m_manager, 0, m_outputs[output]);
    zwlr_screencopy_frame_v1_add_listener(request, &frameListener, &frame);
    while (frame.width == 0 && !frame.hasFailed && wl_display_dispatch(m_display) >= 0)
        ;
    std::string problem = "the compositor refused";
    const size_t size = size_t(frame.stride) * frame.height;
    const int file = frame.width > 0 ? memfd_create("picture", MFD_CLOEXEC) : -1;
    if (file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0) {
        auto *pixels = static_cast<unsigned char *>(
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        wl_shm_pool *pool = wl_shm_create_pool(m_memory, file, static_cast<int32_t>(size));
        wl_buffer *buffer = wl_shm_pool_create_buffer(
            pool, 0, static_cast<int32_t>(frame.width), static_cast<int32_t>(frame.height),
            static_cast<int32_t>(frame.stride), frame.format);
        zwlr_screencopy_frame_v1_copy(request, buffer);
        while (!frame.isReady && !frame.hasFailed && wl_display_dispatch(m_display) >= 0)
            ;
        if (frame.isReady)
            problem = writePicture(frame, pixels, path) ? "" : "cannot write the file";
        wl_buffer_destroy(buffer);
        wl_shm_pool_destroy(pool);
        munmap(pixels, size);
    }
    if (file >= 0)
        close(file);
    zwlr_screencopy_frame_v1_destroy(request);
    return problem;
}

} // namespace quellora
