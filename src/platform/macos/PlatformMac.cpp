#include "platform/macos/PlatformMac.h"

#include "platform/macos/MacPaths.h"
#include "platform/macos/PreferenceStoreMac.h"

namespace quellora {

CaptureTool PlatformMac::captureTool() const
{
    return MacPaths::captureTool();
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
