#pragma once

#include <QFuture>
#include <QImage>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// Takes pictures of the screen inside this process, for systems on which only the program itself
/// can leave its panel out of them. Main thread only; never blocks it.
class ScreenSource
{
public:
    enum class Area {
        /// The screen with the pointer, or with the panel where the pointer's is unknown.
        OneScreen,
        AllScreens,
    };

    struct Failure
    {
        enum class Kind {
            /// The user or the desktop has refused the permission.
            Refused,
            /// The desktop offers no way to take pictures.
            Unavailable,
            Failed,
        };
        Kind kind = Kind::Failed;
        /// For the user, in one sentence without a full stop.
        QString reason;
    };

    /// Pixels of the screen without this program's panel.
    using Picture = tl::expected<QImage, Failure>;

    virtual ~ScreenSource() = default;

    /// Takes one picture. The panel is shown again before the future finishes, also when the future
    /// is cancelled. The future finishes on any thread.
    virtual QFuture<Picture> take(Area area) = 0;
};

} // namespace quellora
