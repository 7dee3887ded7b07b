// Measures quellora-screencapture, including process start, on private displays of three sizes and
// compares it with
//   (a) a shared-memory grab with the same encoding inside one process, and
//   (b) scrot followed by ImageMagick's convert to a 1280 pixel wide JPEG.
// Prints the fastest runs and their ratios. The screen shows a desktop-like picture: flat areas,
// gradients and lines of text-like noise. A second pass has an excluded panel on the screen.

#include "screencapture/ImageReader.h"
#include "screencapture/PngWriter.h"
#include "screencapture/WindowStack.h"
#include "screencapture/XConnection.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace quellora::screencapture;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int rounds = 25;

pid_t start(std::vector<std::string> command)
{
    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string &word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t process = 0;
    if (posix_spawnp(&process, arguments.front(), nullptr, nullptr, arguments.data(), environ) != 0)
        return 0;
    return process;
}

bool run(std::vector<std::string> command)
{
    const pid_t process = start(std::move(command));
    int status = 0;
    return process > 0 && waitpid(process, &status, 0) == process && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool isInstalled(const std::string &program)
{
    const char *path = std::getenv("PATH");
    std::string folders = path == nullptr ? "" : path;
    for (std::size_t begin = 0; begin < folders.size();) {
        const std::size_t end = std::min(folders.find(':', begin), folders.size());
        if (access((folders.substr(begin, end - begin) + '/' + program).c_str(), X_OK) == 0)
            return true;
        begin = end + 1;
    }
    return false;
}

/// A private X server for the lifetime of the object; sets DISPLAY.
class PrivateDisplay
{
public:
    PrivateDisplay(int width, int height)
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0)
            return;
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        m_process = start({"Xvfb", "-displayfd", std::to_string(ends[1]), "-screen", "0",
                           std::to_string(width) + "x" + std::to_string(height) + "x24",
                           "-nolisten", "tcp", "-noreset"});
        close(ends[1]);
        std::string number;
        for (char digit = 0; read(ends[0], &digit, 1) == 1 && digit != '\n';)
            number += digit;
        close(ends[0]);
        m_isRunning = !number.empty();
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }
    ~PrivateDisplay()
    {
        if (m_process > 0) {
            kill(m_process, SIGTERM);
            waitpid(m_process, nullptr, 0);
        }
    }
    PrivateDisplay(const PrivateDisplay &) = delete;
    PrivateDisplay &operator=(const PrivateDisplay &) = delete;

    bool isRunning() const { return m_isRunning; }

private:
    pid_t m_process = 0;
    bool m_isRunning = false;
};

std::uint32_t desktopPixel(int x, int y, int width, int height)
{
    if (y < 28)
        return 0x2b2e3b;
    const bool inWindow =
        x > width / 10 && x < width * 9 / 10 && y > height / 10 && y < height * 9 / 10;
    if (!inWindow)
        return static_cast<std::uint32_t>((40 + x * 80 / width) << 16 |
                                          (60 + y * 90 / height) << 8 | 120);
    const bool textLine = y % 20 > 5 && y % 20 < 16 && (x / 400 + y / 20) % 7 != 0;
    const std::uint32_t noise =
        (static_cast<std::uint32_t>(x) * 2654435761U ^ static_cast<std::uint32_t>(y) * 40503U) >>
        13;
    return textLine && noise % 3 == 0 ? 0x202020 + noise % 64 * 0x010101 : 0xfafafa;
}

/// Sets the desktop picture as the root window's background pixmap.
void paintDesktop(const XConnection &x, int width, int height)
{
    xcb_connection_t *c = x.get();
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    xcb_create_pixmap(c, x.screen().root_depth, pixmap, x.root(), static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(height));
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, pixmap, 0, nullptr);
    constexpr int strip = 16;
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * strip);
    for (int top = 0; top < height; top += strip) {
        const int lines = std::min(strip, height - top);
        for (int y = 0; y < lines; ++y) {
            for (int column = 0; column < width; ++column)
                pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                       static_cast<std::size_t>(column)] =
                    desktopPixel(column, top + y, width, height);
        }
        xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(lines), 0, static_cast<std::int16_t>(top), 0,
                      x.screen().root_depth, static_cast<std::uint32_t>(width * lines * 4),
                      reinterpret_cast<const std::uint8_t *>(pixels.data()));
    }
    xcb_change_window_attributes(c, x.root(), XCB_CW_BACK_PIXMAP, &pixmap);
    xcb_clear_area(c, 0, x.root(), 0, 0, 0, 0);
    takeReply(c, xcb_get_input_focus_reply, xcb_get_input_focus(c));
}

xcb_window_t showWindow(const XConnection &x, const Rect &rect, std::uint32_t colour)
{
    xcb_connection_t *c = x.get();
    const xcb_window_t window = xcb_generate_id(c);
    const std::array<std::uint32_t, 2> values{colour, 1};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, x.root(), static_cast<std::int16_t>(rect.x),
                      static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                      static_cast<std::uint16_t>(rect.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values.data());
    xcb_map_window(c, window);
    takeReply(c, xcb_get_input_focus_reply, xcb_get_input_focus(c));
    return window;
}

/// Shows a large window and, on top of it, a panel marked for exclusion from captures.
void showPanel(const XConnection &x, int width, int height)
{
    xcb_connection_t *c = x.get();
    showWindow(x, {width / 8, height / 8, width * 3 / 4, height * 3 / 4}, 0x336699);
    const xcb_window_t panel = showWindow(x, {width / 4, height / 4, 640, 700}, 0xff00ff);
    constexpr std::string_view name = "_QUELLORA_CAPTURE_EXCLUDE";
    const auto atom =
        takeReply(c, xcb_intern_atom_reply, xcb_intern_atom(c, 0, name.size(), name.data()));
    const std::uint32_t one = 1;
    if (atom)
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, panel, atom->atom, XCB_ATOM_CARDINAL, 32, 1,
                            &one);
    takeReply(c, xcb_get_input_focus_reply, xcb_get_input_focus(c));
}

/// Returns the fastest of @p count runs in milliseconds, because load on the machine only makes
/// runs slower; nullopt if a run fails. Removes @p path before each run, because the app always
/// runs the tool with a new file name.
template <typename Work>
std::optional<double> fastestOf(int count, const std::string &path, Work work)
{
    std::optional<double> fastest;
    for (int i = 0; i < count; ++i) {
        std::filesystem::remove(path);
        const auto begin = Clock::now();
        if (!work())
            return std::nullopt;
        const double time = Milliseconds(Clock::now() - begin).count();
        fastest = std::min(fastest.value_or(time), time);
    }
    return fastest;
}

/// Reference (a): grabs into preallocated memory, encodes and writes the file.
bool grabInProcess(const XConnection &x, ImageReader &reader, const Rect &area,
                   const PixelFormat &format, const std::string &path)
{
    const auto image = reader.read(x.root(), area, format);
    if (!image)
        return false;
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    if (std::setvbuf(file, nullptr, _IONBF, 0) != 0)
        return false;
    const auto done =
        writePng({reinterpret_cast<std::uint32_t *>(reader.data()), area,
                  static_cast<std::size_t>(area.width)},
                 [file](auto bytes) -> tl::expected<void, Failure> {
                     static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), file));
                     return {};
                 });
    return std::fclose(file) == 0 && done.has_value();
}

/// The consumer's cost: reads the file and inflates the pixels.
bool readBack(const std::string &path, const Rect &area)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes(std::filesystem::file_size(path));
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        return false;
    // Signature, IHDR, a single IDAT chunk with its checksum, IEND.
    constexpr std::size_t dataStart = 8 + 25 + 8;
    constexpr std::size_t tail = 4 + 12;
    std::vector<char> raw(static_cast<std::size_t>(area.height) *
                          (1 + 3 * static_cast<std::size_t>(area.width)));
    libdeflate_decompressor *inflater = libdeflate_alloc_decompressor();
    const auto result = libdeflate_zlib_decompress(inflater, bytes.data() + dataStart,
                                                   bytes.size() - dataStart - tail, raw.data(),
                                                   raw.size(), nullptr);
    libdeflate_free_decompressor(inflater);
    return result == LIBDEFLATE_SUCCESS;
}

void report(const char *what, std::optional<double> time)
{
    if (time)
        std::printf("  %-44s %8.2f ms\n", what, *time);
    else
        std::printf("  %-44s failed\n", what);
}

bool measure(int width, int height, const std::string &tool, const std::string &folder)
{
    const PrivateDisplay display(width, height);
    auto x = XConnection::open();
    if (!display.isRunning() || !x) {
        std::fprintf(stderr, "bench_capture_tool: no display server\n");
        return false;
    }
    paintDesktop(*x, width, height);
    const Rect area{0, 0, width, height};
    const auto format = x->format(x->screen().root_depth, x->screen().root_visual);
    const std::string path = folder + "/picture.png";
    const std::string jpeg = folder + "/picture.jpg";
    ImageReader reader(*x);

    std::printf("%dx%d\n", width, height);
    const auto inProcess =
        fastestOf(rounds, path, [&] { return grabInProcess(*x, reader, area, *format, path); });
    report("(a) grab and encode in one process", inProcess);
    const auto whole = fastestOf(rounds, path, [&] { return run({tool, "-x", "-C", path}); });
    report("quellora-screencapture -x -C, whole process", whole);
    const auto readBackTime = fastestOf(rounds, jpeg, [&] { return readBack(path, area); });
    report("reading the file back and inflating it", readBackTime);
    if (inProcess && whole)
        std::printf("  tool / (a): %.2f\n", *whole / *inProcess);

    if (isInstalled("scrot") && isInstalled("convert")) {
        const auto external = fastestOf(3, path, [&] {
            return run({"scrot", "--overwrite", "--silent", path}) &&
                   run({"convert", path, "-resize", "1280", "-quality", "85", jpeg});
        });
        report("(b) scrot, then convert", external);
        if (external && whole)
            std::printf("  (b) / tool: %.1f\n", *external / *whole);
    } else {
        std::printf("  (b) left out: scrot or convert is not installed\n");
    }

    showPanel(*x, width, height);
    const auto withPanel = fastestOf(rounds, path, [&] { return run({tool, "-x", "-C", path}); });
    report("tool with one of our panels to leave out", withPanel);
    if (withPanel && whole)
        std::printf("  with panel / without: %.2f\n", *withPanel / *whole);
    return inProcess && whole && readBackTime && withPanel;
}

} // namespace

int main()
{
    std::string folder =
        (std::filesystem::temp_directory_path() / "quellora-bench-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return 1;
    bool complete = true;
    for (const auto &[width, height] :
         {std::pair(1920, 1080), std::pair(2560, 1600), std::pair(3840, 2160)})
        complete = measure(width, height, QUELLORA_SCREENCAPTURE_PATH, folder) && complete;
    std::filesystem::remove_all(folder);
    return complete ? 0 : 1;
}
