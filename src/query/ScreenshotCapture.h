#pragma once

#include "platform/Platform.h"
#include "platform/ScreenSource.h"
#include "query/Bitmap.h"

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <tl/expected.hpp>

#include <functional>

namespace quellora {

/// Takes one screenshot with the capture tool or through the desktop, rejects near-black frames,
/// scales to a width of at most 1280 pixels and encodes JPEG. Stateless; several captures may run
/// at once.
class ScreenshotCapture
{
public:
    struct Result
    {
        QByteArray jpegData;
        /// Size in bytes of the PNG written by the tool; of a picture taken in this process, the
        /// size of its pixels.
        qint64 originalSizeBytes = 0;
        /// The user has chosen to keep it for the next message instead of sending it at once.
        bool isForLater = false;
    };

    struct CaptureError
    {
        enum class Kind {
            ProcessLaunchFailed,
            NonZeroExit,
            ImageDecodeFailed,
            JpegEncodeFailed,
            ProtectedContent,
            /// The tool's file could not be read; `detail` is the error text.
            FileRead,
            // Of the screen source; `detail` says in a sentence what the user can do.
            Refused,
            Unavailable,
            SourceFailed,
            /// The user has chosen nothing: no reason for a message.
            Dismissed,
        };
        Kind kind = Kind::ImageDecodeFailed;
        QString detail;
        int exitStatus = 0;

        /// User-facing text.
        QString description() const;
        bool operator==(const CaptureError &) const = default;
    };

    using Outcome = tl::expected<Result, CaptureError>;

    /// Polled on the capturing thread; return true to abort the capture.
    using IsCancelled = std::function<bool()>;

    /// Captures on a worker thread. Thread-safe. Cancelling the future kills the tool and removes
    /// its file; the future then has no result.
    static QFuture<Outcome> captureInBackground(const CaptureTool &tool);

    /// Captures through @p source, which must outlive the future; scales and encodes on a worker
    /// thread. Main thread only. Cancelling the future cancels the picture; the future then has no
    /// result.
    static QFuture<Outcome> captureInBackground(ScreenSource &source, ScreenSource::Area area);

    /// Pixels as they were captured.
    using Frozen = tl::expected<QImage, CaptureError>;

    /// Takes the picture of all screens of which the user chooses a part, like
    /// captureInBackground().
    static QFuture<Frozen> freezeInBackground(const CaptureTool &tool);
    static QFuture<Frozen> freezeInBackground(ScreenSource &source);
    /// Checks, scales and encodes a part of such a picture on a worker thread. Thread-safe. The
    /// check for protected content looks at every pixel, because a part may be small.
    static QFuture<Outcome> encodeInBackground(const QImage &part);

    /// Runs the tool, which writes @p path, and waits for it without a timeout; kills it once
    /// @p isCancelled returns true. Death by a signal is reported as an exit with the signal's
    /// number. Files that the tool creates are private to the user.
    static tl::expected<void, CaptureError> runScreencapture(const CaptureTool &tool,
                                                             const QString &path,
                                                             const IsCancelled &isCancelled = {});
    /// Scales to a width of at most 1280 pixels, keeping the aspect ratio. Returns @p bitmap itself
    /// if it is narrow enough or cannot be scaled.
    static Bitmap resizeIfNeeded(Bitmap bitmap);
    /// Whether at least 99.9 % of the samples on a grid are black or nearly black, as when the
    /// system blanks protected content.
    /// @param step width of the grid in pixels
    static bool isNearBlackFrame(const Bitmap &bitmap, int step = 16);
};

} // namespace quellora
