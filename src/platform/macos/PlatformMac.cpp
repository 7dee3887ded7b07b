#include "platform/macos/PlatformMac.h"

#include "platform/macos/MacPaths.h"
#include "platform/macos/PreferenceStoreMac.h"

#include <algorithm>

namespace quellora {

CaptureTool PlatformMac::captureTool() const
{
    return MacPaths::captureTool();
}

ScreenLayout PlatformMac::screenLayout() const
{
    // The tool's picture shows the main screen only, which is the toolkit's first.
    ScreenLayout layout = ScreenLayout::inPoints();
    layout.screens = layout.screens.first(std::min<qsizetype>(1, layout.screens.size()));
    return layout;
}

QString PlatformMac::applicationSupportDirectory() const
{
    return MacPaths::applicationSupportDirectory();
}

std::unique_ptr<UserDefaults> PlatformMac::makeUserDefaults() const
{
    return std::make_unique<PreferencesUserDefaults>(std::make_unique<PreferenceStoreMac>());
}

} // namespace quellora
