#include "query/ScreenshotCapture.h"

#include "base/Log.h"
#include "query/JpegEncoder.h"
#include "query/LanczosResampler.h"
#include "query/PngDecoder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QProcess>
#include <QPromise>
#include <QScopeGuard>
#include <QThreadPool>
#include <QUuid>

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <thread>
#include <utility>

namespace quellora {

namespace {

using Outcome = ScreenshotCapture::Outcome;
using CaptureError = ScreenshotCapture::CaptureError;
using Kind = CaptureError::Kind;

constexpr int maxWidth = 1280;
/// Width in pixels of the grid on which a whole screen is sampled, and a chosen part.
constexpr int screenStep = 16;
constexpr int partStep = 1;
constexpr int darkThreshold = 8;
constexpr double darkFraction = 0.999;
constexpr int jpegQuality = 85;
/// Uncompressed size of the largest image that is decoded, plus a margin for its headers.
constexpr qint64 maxFileBytes = maxPngPixels * 4 + 64 * 1024 * 1024;
constexpr int maxBands = 4;
/// Interval for polling the cancellation callback.
constexpr int cancellationPollMs = 50;

QString temporaryPath()
{
    return QDir::tempPath() + QStringLiteral("/vantiro_capture_") +
           QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".png");
}

/// The tool's file in memory; `bytes` may refer to a mapping owned by `file`.
struct CaptureFile
{
    std::unique_ptr<QFile> file;
    QByteArray bytes;
};

/// Maps the file if possible: allocating memory for a large screen takes several times as long as
/// decoding. Unlinks it first, so that no other process can open and truncate the mapped file.
tl::expected<CaptureFile, CaptureError> readCapture(const QString &path)
{
    const auto failed = [](const QString &text) {
        return tl::unexpected(CaptureError{Kind::FileRead, text, 0});
    };
    const QFileInfo info(path);
    // Other users can see the name while the tool runs: accept only a regular file.
    if (info.isSymLink() || (info.exists() && !info.isFile()))
        return failed(QStringLiteral("Not a regular file"));
    CaptureFile capture{std::make_unique<QFile>(path), {}};
    QFile &file = *capture.file;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return failed(file.errorString());
    const qint64 size = file.size();
    if (size > maxFileBytes)
        return tl::unexpected(CaptureError{Kind::ImageDecodeFailed, {}, 0});
    if (QFile::remove(path)) {
        if (const uchar *mapped = size > 0 ? file.map(0, size) : nullptr) {
            capture.bytes = QByteArray::fromRawData(
                static_cast<const char *>(static_cast<const void *>(mapped)), size);
            return capture;
        }
    }
    file.unsetError();
    capture.bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return failed(file.errorString());
    return capture;
}

int workerCount()
{
    return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, maxBands);
}

/// A dedicated pool, so that captures never queue behind other background work. Never destroyed,
/// because its destructor would wait for a hanging tool.
QThreadPool &capturePool()
{
    static QThreadPool *const pool = [] {
        auto *created = new QThreadPool;
        created->setMaxThreadCount(8);
        created->setThreadPriority(QThread::HighPriority);
        qAddPostRoutine([] { capturePool().waitForDone(1000); });
        return created;
    }();
    return *pool;
}

/// Scales, checks and encodes one picture.
/// @param originalKind what @p originalSizeBytes counts, for the log
/// @param step see isNearBlackFrame()
Outcome encode(Bitmap original, qint64 originalSizeBytes, const QString &originalKind,
               int step = screenStep)
{
    const Bitmap bitmap = ScreenshotCapture::resizeIfNeeded(std::move(original));
    if (ScreenshotCapture::isNearBlackFrame(bitmap, step)) {
        Log::event(QStringLiteral("[ScreenshotCapture] Discarding near-black capture "
                                  "(protected/DRM content suspected)"));
        return tl::unexpected(CaptureError{Kind::ProtectedContent, {}, 0});
    }
    ScreenshotCapture::Result result;
    result.jpegData = encodeJpeg(bitmap, jpegQuality);
    result.originalSizeBytes = originalSizeBytes;
    if (result.jpegData.isEmpty())
        return tl::unexpected(CaptureError{Kind::JpegEncodeFailed, {}, 0});
    Log::event(QStringLiteral("[ScreenshotCapture] Captured %1 bytes %2 -> %3 bytes JPEG "
                              "(%4x%5)")
                   .arg(result.originalSizeBytes)
                   .arg(originalKind)
                   .arg(result.jpegData.size())
                   .arg(bitmap.width)
                   .arg(bitmap.height));
    return result;
}

/// Runs the tool and decodes its file.
/// @param png receives the file: releasing a large one takes milliseconds, so the caller does it
///        after delivering the result
tl::expected<Bitmap, CaptureError> takePicture(const CaptureTool &tool,
                                               const ScreenshotCapture::IsCancelled &isCancelled,
                                               CaptureFile &png)
{
    const QString path = temporaryPath();
    const auto remove = qScopeGuard([&path] { QFile::remove(path); });

    if (const auto run = ScreenshotCapture::runScreencapture(tool, path, isCancelled); !run) {
        if (run.error().kind == Kind::NonZeroExit && tool.noWindowStatus != 0 &&
            run.error().exitStatus == tool.noWindowStatus)
            return tl::unexpected(
                CaptureError{Kind::Unavailable, QStringLiteral("No window is in front"), 0});
        return tl::unexpected(run.error());
    }
    auto read = readCapture(path);
    if (!read)
        return tl::unexpected(read.error());
    png = *std::move(read);
    auto decoded = decodePng(png.bytes);
    if (!decoded)
        return tl::unexpected(CaptureError{Kind::ImageDecodeFailed, {}, 0});
    return *std::move(decoded);
}

Outcome capture(const CaptureTool &tool, const ScreenshotCapture::IsCancelled &isCancelled,
                CaptureFile &png)
{
    auto taken = takePicture(tool, isCancelled, png);
    if (!taken)
        return tl::unexpected(std::move(taken).error());
    return encode(*std::move(taken), png.bytes.size(), QStringLiteral("PNG"));
}

ScreenshotCapture::Frozen
freeze(const CaptureTool &tool, const ScreenshotCapture::IsCancelled &isCancelled, CaptureFile &png)
{
    const auto taken = takePicture(tool, isCancelled, png);
    if (!taken)
        return tl::unexpected(taken.error());
    QImage image = taken->toImage();
    if (image.isNull())
        return tl::unexpected(CaptureError{Kind::ImageDecodeFailed, {}, 0});
    return image;
}

/// Passes the picture of a source to @p finish on a worker thread, which fulfils the promise of the
/// returned future. Cancelling that one cancels the picture.
template <typename Result>
QFuture<Result> relay(QFuture<ScreenSource::Picture> picture,
                      void (*finish)(QPromise<Result> &, const ScreenSource::Picture &))
{
    const auto promise = std::make_shared<QPromise<Result>>();
    promise->start();
    // Forwards the cancellation; deletes itself when the result is there.
    auto *outcome = new QFutureWatcher<Result>;
    QObject::connect(outcome, &QFutureWatcherBase::canceled, outcome,
                     [picture]() mutable { picture.cancel(); });
    QObject::connect(outcome, &QFutureWatcherBase::finished, outcome, &QObject::deleteLater);
    outcome->setFuture(promise->future());
    auto *taken = new QFutureWatcher<ScreenSource::Picture>(outcome);
    QObject::connect(taken, &QFutureWatcherBase::finished, taken, [taken, promise, finish] {
        if (taken->isCanceled() || promise->isCanceled()) {
            promise->future().cancel();
            promise->finish();
            return;
        }
        // The pixels are released after the result has been delivered, which takes milliseconds.
        // Not taken out of the future: the end of its promise would then count as a cancellation.
        capturePool().start([promise, finish, picture = taken->future().result()] {
            finish(*promise, picture);
            promise->finish();
        });
    });
    taken->setFuture(picture);
    return promise->future();
}

/// Runs @p work with the tool on a worker thread.
template <typename Result>
QFuture<Result> runTool(const CaptureTool &tool,
                        Result (*work)(const CaptureTool &, const ScreenshotCapture::IsCancelled &,
                                       CaptureFile &))
{
    const auto promise = std::make_shared<QPromise<Result>>();
    promise->start();
    capturePool().start([promise, tool, work] {
        CaptureFile png;
        promise->addResult(work(
            tool, [&] { return promise->isCanceled(); }, png));
        promise->finish();
    });
    return promise->future();
}

CaptureError::Kind errorKind(ScreenSource::Failure::Kind kind)
{
    switch (kind) {
    case ScreenSource::Failure::Kind::Refused:
        return Kind::Refused;
    case ScreenSource::Failure::Kind::Unavailable:
        return Kind::Unavailable;
    case ScreenSource::Failure::Kind::Failed:
        return Kind::SourceFailed;
    }
    Q_UNREACHABLE();
}

CaptureError sourceError(const ScreenSource::Failure &failure)
{
    return {errorKind(failure.kind), failure.reason, 0};
}

Outcome encodePicture(const QImage &picture, int step = screenStep)
{
    const qint64 pixelBytes = qint64{picture.width()} * picture.height() * picture.depth() / 8;
    Bitmap bitmap = Bitmap::fromImage(picture);
    if (bitmap.isNull())
        return tl::unexpected(CaptureError{Kind::ImageDecodeFailed, {}, 0});
    return encode(std::move(bitmap), pixelBytes, QStringLiteral("of pixels"), step);
}

} // namespace

QString ScreenshotCapture::CaptureError::description() const
{
    switch (kind) {
    case Kind::ProcessLaunchFailed:
        return QStringLiteral("Could not launch screencapture: ") + detail;
    case Kind::NonZeroExit:
        return QStringLiteral("screencapture exited with status %1").arg(exitStatus);
    case Kind::ImageDecodeFailed:
        return QStringLiteral("Could not decode captured screenshot");
    case Kind::JpegEncodeFailed:
        return QStringLiteral("Could not encode screenshot as JPEG");
    case Kind::ProtectedContent:
        return QStringLiteral(
            "Captured content appears to be protected (DRM) — near-uniform black frame");
    case Kind::FileRead:
    case Kind::Refused:
    case Kind::Unavailable:
    case Kind::SourceFailed:
        return detail;
    case Kind::Dismissed:
        return QStringLiteral("Nothing was chosen");
    }
    Q_UNREACHABLE();
}

QFuture<Outcome> ScreenshotCapture::captureInBackground(const CaptureTool &tool)
{
    return runTool(tool, &capture);
}

QFuture<ScreenshotCapture::Frozen> ScreenshotCapture::freezeInBackground(const CaptureTool &tool)
{
    CaptureTool all = tool;
    all.arguments = tool.choiceArguments;
    return runTool(all, &freeze);
}

QFuture<ScreenshotCapture::Frozen> ScreenshotCapture::freezeInBackground(ScreenSource &source)
{
    return relay<Frozen>(source.take(ScreenSource::Area::AllScreensForChoice),
                         [](QPromise<Frozen> &promise, const ScreenSource::Picture &picture) {
                             promise.addResult(
                                 picture ? Frozen(*picture)
                                         : Frozen(tl::unexpected(sourceError(picture.error()))));
                         });
}

QFuture<Outcome> ScreenshotCapture::encodeInBackground(const QImage &part)
{
    const auto promise = std::make_shared<QPromise<Outcome>>();
    promise->start();
    capturePool().start([promise, part] {
        promise->addResult(encodePicture(part, partStep));
        promise->finish();
    });
    return promise->future();
}

QFuture<Outcome> ScreenshotCapture::captureInBackground(ScreenSource &source,
                                                        ScreenSource::Area area)
{
    return relay<Outcome>(
        source.take(area), [](QPromise<Outcome> &promise, const ScreenSource::Picture &picture) {
            promise.addResult(picture ? encodePicture(*picture)
                                      : tl::unexpected(sourceError(picture.error())));
        });
}

tl::expected<void, CaptureError> ScreenshotCapture::runScreencapture(const CaptureTool &tool,
                                                                     const QString &path,
                                                                     const IsCancelled &isCancelled)
{
    QProcess process;
    process.setProgram(tool.program);
    process.setArguments(tool.arguments + QStringList{path});
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setChildProcessModifier([] { umask(S_IRWXG | S_IRWXO); });
    process.start();
    while (!process.waitForFinished(cancellationPollMs) &&
           process.state() != QProcess::NotRunning) {
        if (isCancelled && isCancelled())
            process.kill();
    }
    if (process.error() == QProcess::FailedToStart)
        return tl::unexpected(CaptureError{Kind::ProcessLaunchFailed, process.errorString(), 0});
    const bool killed = process.exitStatus() == QProcess::CrashExit;
    if (killed || process.exitCode() != 0)
        return tl::unexpected(CaptureError{Kind::NonZeroExit, {}, process.exitCode()});
    return {};
}

Bitmap ScreenshotCapture::resizeIfNeeded(Bitmap bitmap)
{
    if (bitmap.width <= maxWidth)
        return bitmap;
    const double scale = static_cast<double>(maxWidth) / bitmap.width;
    const auto height = static_cast<int>(std::round(bitmap.height * scale));
    Bitmap resized = resampleLanczos(bitmap, maxWidth, height, workerCount());
    return resized.isNull() ? std::move(bitmap) : std::move(resized);
}

bool ScreenshotCapture::isNearBlackFrame(const Bitmap &bitmap, int step)
{
    if (bitmap.isNull())
        return false;
    qint64 sampled = 0;
    qint64 dark = 0;
    for (int y = 0; y < bitmap.height; y += step) {
        const std::uint8_t *row = bitmap.rows[static_cast<std::size_t>(y)];
        for (int x = 0; x < bitmap.width; x += step) {
            const std::uint8_t *pixel = row + std::ptrdiff_t{x} * bitmap.channels;
            ++sampled;
            if (pixel[0] <= darkThreshold && pixel[1] <= darkThreshold && pixel[2] <= darkThreshold)
                ++dark;
        }
    }
    return static_cast<double>(dark) / static_cast<double>(sampled) >= darkFraction;
}

} // namespace quellora
