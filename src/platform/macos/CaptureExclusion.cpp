#include "platform/macos/CaptureExclusion.h"

namespace quellora {
namespace {

// The newer capture API ignores the exclusion from this version on.
constexpr int firstVersionIgnoringExclusion = 15;

} // namespace

Capability captureExclusion(bool isAccepted, int majorVersion)
{
    if (!isAccepted)
        return Capability::unsupported(
            QStringLiteral("The system did not take the window out of screen captures"));
    if (majorVersion < firstVersionIgnoringExclusion)
        return Capability::applied();
    return Capability::bestEffort(
        QStringLiteral("Only older ways of capturing the screen leave the window out since "
                       "macOS %1")
            .arg(firstVersionIgnoringExclusion));
}

} // namespace quellora
