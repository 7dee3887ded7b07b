#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The system's own text for its version, and the processor, whatever the program was built for.
class DeviceInfoMac : public DeviceInfo
{
public:
    QString osVersion() const override;
    QString cpuArch() const override;
};

} // namespace quellora
