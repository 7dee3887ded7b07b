#pragma once

#include "platform/Platform.h"
#include "query/Bitmap.h"

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <tl/expected.hpp>

#include <functional>

namespace quellora {

/// Takes one screenshot with the capture tool, rejects near-black frames, scales to a width of at
/// most 1280 pixels and encodes JPEG. Stateless; several captures may run at once.
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
            /// The tool's file could not be read; the detail is the file error's text.
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

    /// Whether the picture is no longer wanted; called repeatedly on the capturing thread.
    using IsGivenUp = std::function<bool()>;

    /// Captures on a worker thread. Callable from any thread. Cancelling the future kills the tool
    /// and removes its file; no result follows.
    static QFuture<Outcome> captureInBackground(const CaptureTool &tool);

    /// Runs the tool, which writes @p path, and waits for it without a time limit; kills it when
    /// the picture is given up. A tool killed by a signal counts as exited with the signal's
    /// number. Files that the tool creates are private to the user.
    static tl::expected<void, CaptureError>
    runScreencapture(const CaptureTool &tool, const QString &path, const IsGivenUp &isGivenUp = {});
    /// Scales to a width of at most 1280 pixels, keeping the aspect ratio. Returns the same bitmap
    /// when it is narrow enough or there is no memory for a smaller one.
    static Bitmap resizeIfNeeded(Bitmap bitmap);
    /// Whether at least 99.9 % of the points of a 16-pixel grid are black or nearly so, as when the
    /// system blanks protected content.
    static bool isNearBlackFrame(const Bitmap &bitmap);
};

} // namespace quellora
