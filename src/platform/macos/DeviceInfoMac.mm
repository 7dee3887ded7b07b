#include "platform/macos/DeviceInfoMac.h"

#include "platform/macos/Cocoa.h"

#include <cstddef>

#include <sys/sysctl.h>

namespace quellora {

QString DeviceInfoMac::osVersion() const
{
    return Cocoa::string(NSProcessInfo.processInfo.operatingSystemVersionString);
}

QString DeviceInfoMac::cpuArch() const
{
    int isArm64 = 0;
    std::size_t size = sizeof(isArm64);
    const int status = ::sysctlbyname("hw.optional.arm64", &isArm64, &size, nullptr, 0);
    return status == 0 && isArm64 == 1 ? QStringLiteral("arm64") : QStringLiteral("x86_64");
}

} // namespace quellora
