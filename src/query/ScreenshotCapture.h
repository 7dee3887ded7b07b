#pragma once

#include "platform/Platform.h"
#include "query/Bitmap.h"

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <tl/expected.hpp>

#include <functional>

namespace quellora {

/// Takes one screenshot through the capture tool, refuses near-black frames,
/// scales to at most 1280 pixels wide and encodes JPEG. Stateless; several may run at once.
class ScreenshotCapture
{
public:
    struct Result
    {
        QByteArray jpegData;
        /// Size in bytes of the PNG that the tool wrote.
        qint64 originalSizeBytes = 0;
    };

    struct CaptureError
    {
        enum class Kind {
            ProcessLaunchFailed,
            NonZeroExit,
            ImageDecodeFailed,
            JpegEncodeFailed,
            ProtectedContent,
            /// The tool's file could not be read back; the file error's own text is kept.
            FileRead,
        };
        Kind kind = Kind::ImageDecodeFailed;
        QString detail;
        int exitStatus = 0;

        /// User-facing text.
        QString description() const;
        bool operator==(const CaptureError &) const = default;
    };

    using Outcome = tl::expected<Result, CaptureError>;

    /// Says, on the capturing thread, whether the picture is still wanted; asked several times.
    using IsGivenUp = std::function<bool()>;

    /// Blocks until the tool exits and the JPEG is ready. Never call it on the main thread.
    static Outcome captureAndOptimize(const CaptureTool &tool, const IsGivenUp &isGivenUp = {});
    /// captureAndOptimize() on a worker thread of its own pool. Callable from any thread.
    /// Cancelling the future ends the tool and removes its file; no result follows.
    static QFuture<Outcome> captureInBackground(const CaptureTool &tool);

    /// Runs the tool, which writes @p path, and waits for it without a time limit, but kills it
    /// when the picture is given up. A tool that a signal killed counts as exited with the signal's
    /// number. Everything the tool creates is private to the user.
    static tl::expected<void, CaptureError>
    runScreencapture(const CaptureTool &tool, const QString &path, const IsGivenUp &isGivenUp = {});
    /// At most 1280 pixels wide, the height following the aspect ratio; the same bitmap when it
    /// is narrow enough or a smaller one cannot be created.
    static Bitmap resizeIfNeeded(Bitmap bitmap);
    /// Whether at least 999 of 1000 points of a 16-pixel grid are black or nearly so, the mark of
    /// content that the system blanks out of captures.
    static bool isNearBlackFrame(const Bitmap &bitmap);
};

} // namespace quellora
