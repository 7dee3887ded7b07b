#pragma once

#include <QFuture>
#include <QImage>
#include <QString>

#include <tl/expected.hpp>

#include <functional>

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
        /// All screens without the pointer, to choose a part of.
        AllScreensForChoice,
        /// The window in front that is not this program's.
        FrontWindow,
    };

    struct Failure
    {
        enum class Kind {
            /// The user or the desktop has refused the permission.
            Refused,
            /// The desktop offers no way to take such pictures, or there is no window in front.
            Unavailable,
            Failed,
        };
        Kind kind = Kind::Failed;
        /// For the user, in one sentence without a full stop.
        QString reason;
    };

    /// Pixels of the screen without this program's panel.
    using Picture = tl::expected<QImage, Failure>;

    /// What is known about the permission to take pictures.
    enum class Access {
        /// Not found out yet.
        Unknown,
        /// The desktop asks the user when the first picture is taken.
        NotAsked,
        /// A picture was taken, the user has agreed, or the desktop does not ask.
        Granted,
        Refused,
        /// The desktop offers no way to take pictures.
        Unavailable,
    };

    virtual ~ScreenSource() = default;

    /// Takes one picture. The panel is shown again before the future finishes, also when the future
    /// is cancelled. The future finishes on any thread.
    virtual QFuture<Picture> take(Area area) = 0;

    virtual Access access() const { return Access::Granted; }
    /// What the user can do while the access is refused or unavailable, in whole sentences.
    virtual QString advice() const { return {}; }
    /// Called on the main thread whenever access() changes; replaces the previous handler.
    virtual void onAccessChanged(std::function<void()>) {}
    /// Makes the desktop ask the user now, who may take minutes; a window of this program must have
    /// the focus. The panel stays as it is. Cancel the future to stop waiting.
    /// @return access() after the answer
    virtual QFuture<Access> ask() { return QtFuture::makeReadyFuture(access()); }
};

} // namespace quellora
