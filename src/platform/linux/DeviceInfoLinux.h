#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The distribution's own name for itself with the kernel's release, and the processor.
class DeviceInfoLinux : public DeviceInfo
{
public:
    /// This machine.
    DeviceInfoLinux();
    /// @param prettyName the distribution's PRETTY_NAME; "Linux" stands in for an empty one
    /// @param architecture as QSysInfo::currentCpuArchitecture() names it
    DeviceInfoLinux(const QString &prettyName, const QString &kernelRelease,
                    const QString &architecture);

    QString osVersion() const override { return m_osVersion; }
    QString cpuArch() const override { return m_cpuArch; }

private:
    QString m_osVersion;
    QString m_cpuArch;
};

} // namespace quellora
