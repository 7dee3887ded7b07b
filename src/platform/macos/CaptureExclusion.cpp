#include "platform/macos/CaptureExclusion.h"

namespace quellora {
namespace {

// The newer capture API ignores the exclusion from this version on.
constexpr int firstVersionThatCaptures = 15;

} // namespace

Capability captureExclusion(bool isTaken, int majorVersion)
{
    if (!isTaken)
        return Capability::unsupported(
            QStringLiteral("The system did not take the window out of screen captures"));
    if (majorVersion < firstVersionThatCaptures)
        return Capability::applied();
    return Capability::bestEffort(
        QStringLiteral("Only older ways of capturing the screen leave the window out since "
                       "macOS %1")
            .arg(firstVersionThatCaptures));
}

} // namespace quellora
