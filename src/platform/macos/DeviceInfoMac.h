#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The operating-system version string and the processor, also when running translated.
class DeviceInfoMac : public DeviceInfo
{
public:
    QString osVersion() const override;
    QString cpuArch() const override;
};

} // namespace quellora
