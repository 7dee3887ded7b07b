// Measures the time from the hot key until the request is ready to send: capture tool, PNG
// decoding, test for a black image, scaling, JPEG encoding, base64 and request body, on private
// displays of three sizes. References measured in the same run:
//   (a) a shared-memory grab, Lanczos scaling, JPEG, base64 and body inside one process,
//   (b) scrot, then convert to a JPEG of the same width.
// Also measures each step and compares the JPEG with scaling in double precision.

#include "BenchClock.h"
#include "ImageQuality.h"
#include "base/Log.h"
#include "query/JpegEncoder.h"
#include "query/LanczosResampler.h"
#include "query/PngDecoder.h"
#include "query/ProxyQueryService.h"
#include "query/ScreenshotCapture.h"
#include "screencapture/ImageReader.h"
#include "screencapture/XConnection.h"

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cstdio>
#include <optional>

namespace {

using namespace quellora;

constexpr int runs = 31;
constexpr int jpegQuality = 85;

/// A private X server for the lifetime of the object; sets DISPLAY.
class PrivateDisplay
{
public:
    explicit PrivateDisplay(QSize size)
    {
        m_server.start(
            QStringLiteral("Xvfb"),
            {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
             QStringLiteral("0"), QStringLiteral("%1x%2x24").arg(size.width()).arg(size.height()),
             QStringLiteral("-nolisten"), QStringLiteral("tcp"), QStringLiteral("-noreset")});
        QByteArray number;
        while (!number.endsWith('\n') && m_server.waitForReadyRead(10'000))
            number += m_server.readAllStandardOutput();
        m_isRunning = number.endsWith('\n');
        qputenv("DISPLAY", ":" + number.trimmed());
    }
    ~PrivateDisplay()
    {
        m_server.terminate();
        m_server.waitForFinished();
    }
    PrivateDisplay(const PrivateDisplay &) = delete;
    PrivateDisplay &operator=(const PrivateDisplay &) = delete;

    bool isRunning() const { return m_isRunning; }

private:
    QProcess m_server;
    bool m_isRunning = false;
};

/// A desktop-like image: a gradient and two windows with text in several sizes.
QImage desktop(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient sky(0, 0, size.width(), size.height());
    sky.setColorAt(0, QColor(38, 60, 120));
    sky.setColorAt(1, QColor(190, 120, 90));
    painter.fillRect(image.rect(), sky);
    const auto window = [&](const QRect &frame, const QColor &paper, const QColor &ink) {
        painter.fillRect(frame, paper);
        painter.fillRect(QRect(frame.topLeft(), QSize(frame.width(), 30)), QColor(60, 60, 66));
        painter.setPen(ink);
        QFont font = painter.font();
        int y = frame.top() + 60;
        for (int line = 0; y < frame.bottom() - 10; ++line) {
            font.setPixelSize(12 + line % 5 * 2);
            painter.setFont(font);
            QString text;
            for (int word = 0; word < 30; ++word)
                text += QString::number(qHash(line * 31 + word), 36) + QLatin1Char(' ');
            painter.drawText(QRect(frame.left() + 16, y - 20, frame.width() - 32, 26),
                             Qt::AlignLeft | Qt::AlignVCenter, text);
            y += 26;
        }
    };
    window({size.width() / 20, size.height() / 12, size.width() / 2, size.height() * 3 / 4},
           Qt::white, QColor(30, 30, 30));
    window({size.width() / 2, size.height() / 6, size.width() * 2 / 5, size.height() * 3 / 4},
           QColor(28, 30, 38), QColor(150, 220, 170));
    return image;
}

/// Sets the image as the root window's background.
void paintRootWindow(const screencapture::XConnection &x, const QImage &image)
{
    xcb_connection_t *c = x.get();
    const auto width = static_cast<std::uint16_t>(image.width());
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    xcb_create_pixmap(c, x.screen().root_depth, pixmap, x.root(), width,
                      static_cast<std::uint16_t>(image.height()));
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, pixmap, 0, nullptr);
    for (int y = 0; y < image.height(); y += 8) {
        const int lines = std::min(8, image.height() - y);
        xcb_put_image(
            c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, width, static_cast<std::uint16_t>(lines), 0,
            static_cast<std::int16_t>(y), 0, x.screen().root_depth,
            static_cast<std::uint32_t>(image.bytesPerLine() * lines), image.constScanLine(y));
    }
    xcb_change_window_attributes(c, x.root(), XCB_CW_BACK_PIXMAP, &pixmap);
    xcb_clear_area(c, 0, x.root(), 0, 0, 0, 0);
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

/// CPU time of this process and its finished children in milliseconds; less sensitive to load than
/// elapsed time.
double processorTime()
{
    double total = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime})
            total +=
                static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    }
    return total;
}

QByteArray requestBody(const QByteArray &jpeg)
{
    return ProxyQueryService::encodeBody(
        {QStringLiteral("What is on the screen?"), jpeg.toBase64(), {}, {}});
}

void report(const char *what, double time)
{
    std::printf("  %-44s %8.2f ms\n", what, time);
}

Bitmap decodedJpeg(const QByteArray &jpeg)
{
    const QImage image = QImage::fromData(jpeg, "JPG").convertToFormat(QImage::Format_RGBX8888);
    Bitmap bitmap = Bitmap::create(image.width(), image.height(), 4);
    for (int y = 0; y < image.height(); ++y)
        std::copy_n(image.constScanLine(y), bitmap.rowBytes(),
                    bitmap.buffers.front().get() + static_cast<std::size_t>(y) * bitmap.rowBytes());
    return bitmap;
}

void reportQuality(const Bitmap &screen, const QByteArray &jpeg)
{
    struct Component
    {
        const char *name;
        double red;
        double green;
        double blue;
    };
    const Bitmap sent = decodedJpeg(jpeg);
    for (const Component &part :
         {Component{"brightness", 0.299, 0.587, 0.114}, Component{"red", 1, 0, 0},
          Component{"green", 0, 1, 0}, Component{"blue", 0, 0, 1}}) {
        const Plane exact =
            exactLanczos(planeOf(screen, part.red, part.green, part.blue), sent.width, sent.height);
        const Plane ours = planeOf(sent, part.red, part.green, part.blue);
        std::printf("  similarity to exact Lanczos, %-15s %8.4f\n", part.name,
                    structuralSimilarity(ours, exact));
    }
}

bool measure(QSize size, const CaptureTool &tool)
{
    const PrivateDisplay display(size);
    auto x = screencapture::XConnection::open();
    if (!display.isRunning() || !x) {
        std::fprintf(stderr, "bench_pipeline: no display server\n");
        return false;
    }
    paintRootWindow(*x, desktop(size));
    const auto format = x->format(x->screen().root_depth, x->screen().root_visual);
    screencapture::ImageReader reader(*x);
    const screencapture::Rect area{0, 0, size.width(), size.height()};
    const int height = static_cast<int>(std::round(size.height() * 1280.0 / size.width()));
    const auto grabbed = [&] {
        Bitmap bitmap;
        if (!reader.read(x->root(), area, *format))
            return bitmap;
        bitmap.width = size.width();
        bitmap.height = size.height();
        bitmap.channels = 4;
        for (int y = 0; y < size.height(); ++y)
            bitmap.rows.push_back(reinterpret_cast<const std::uint8_t *>(reader.data()) +
                                  static_cast<std::size_t>(y) * bitmap.rowBytes());
        return bitmap;
    };
    std::printf("%d x %d\n", size.width(), size.height());

    const auto inProcess = [&](int threads) {
        return fastestMilliseconds(runs, [&] {
            requestBody(encodeJpeg(resampleLanczos(grabbed(), 1280, height, threads), jpegQuality));
        });
    };
    const double processorStart = processorTime();
    const double reference = inProcess(1);
    const double referenceProcessor = (processorTime() - processorStart) / (runs + 1);
    report("(a) grab, Lanczos, JPEG in one process", reference);
    report("    the same in bands on two processors", inProcess(2));

    QByteArray jpeg;
    const double oursStart = processorTime();
    const double ours = fastestMilliseconds(runs, [&] {
        const auto outcome = ScreenshotCapture::captureInBackground(tool).result();
        jpeg = outcome ? outcome->jpegData : QByteArray();
        requestBody(jpeg);
    });
    if (jpeg.isEmpty()) {
        std::fprintf(stderr, "bench_pipeline: the capture failed\n");
        return false;
    }
    report("hot key to request ready", ours);
    const double oursProcessor = (processorTime() - oursStart) / (runs + 1);
    std::printf("  %-44s %8.2f\n", "ratio to (a)", ours / reference);
    report("processor time of (a), mean", referenceProcessor);
    report("processor time of ours with the tool, mean", oursProcessor);
    std::printf("  %-44s %8.2f\n", "ratio of processor times", oursProcessor / referenceProcessor);

    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("picture.png"));
    const double toolAlone = fastestMilliseconds(runs, [&] {
        QFile::remove(path);
        if (!ScreenshotCapture::runScreencapture(tool, path))
            std::fprintf(stderr, "bench_pipeline: the tool failed\n");
    });
    report("    of which the tool", toolAlone);
    QFile file(path);
    const uchar *mapped = file.open(QIODevice::ReadOnly) ? file.map(0, file.size()) : nullptr;
    if (mapped == nullptr)
        return false;
    QFile::remove(path); // keeps the mapping valid: a later run of the tool creates a new file
    const QByteArray png =
        QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), file.size());
    report("    decoding", fastestMilliseconds(runs, [&] { decodePng(png); }));
    const auto decoded = decodePng(png);
    if (!decoded)
        return false;
    report("    scaling on one processor",
           fastestMilliseconds(runs, [&] { resampleLanczos(*decoded, 1280, height, 1); }));
    report("    scaling on two",
           fastestMilliseconds(runs, [&] { resampleLanczos(*decoded, 1280, height, 2); }));
    const Bitmap scaled = resampleLanczos(*decoded, 1280, height, 2);
    report("    JPEG", fastestMilliseconds(runs, [&] { encodeJpeg(scaled, jpegQuality); }));
    report("    base64 and body", fastestMilliseconds(runs, [&] { requestBody(jpeg); }));

    if (!QStandardPaths::findExecutable(QStringLiteral("scrot")).isEmpty() &&
        !QStandardPaths::findExecutable(QStringLiteral("convert")).isEmpty()) {
        const QString small = folder.filePath(QStringLiteral("picture.jpg"));
        const double external = fastestMilliseconds(3, [&] {
            QProcess::execute(QStringLiteral("scrot"),
                              {QStringLiteral("--overwrite"), QStringLiteral("--silent"), path});
            QProcess::execute(QStringLiteral("convert"),
                              {path, QStringLiteral("-resize"), QStringLiteral("1280"),
                               QStringLiteral("-quality"), QStringLiteral("85"), small});
        });
        report("(b) scrot, then convert", external);
        std::printf("  %-44s %8.1f\n", "(b) / hot key to request ready", external / ours);
    }
    reportQuality(*decoded, jpeg);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    Log::setSinkForTesting([](const QString &) {});
    const CaptureTool tool{QStringLiteral(QUELLORA_SCREENCAPTURE_PATH),
                           {QStringLiteral("-x"), QStringLiteral("-C")}};
    bool complete = true;
    for (const QSize size : {QSize(1920, 1080), QSize(2560, 1600), QSize(3840, 2160)})
        complete = measure(size, tool) && complete;
    return complete ? 0 : 1;
}
