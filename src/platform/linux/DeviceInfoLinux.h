#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The distribution's name with the kernel release, and the CPU architecture.
class DeviceInfoLinux : public DeviceInfo
{
public:
    /// This machine.
    DeviceInfoLinux();
    /// @param prettyName the distribution's PRETTY_NAME; replaced by "Linux" if empty
    /// @param architecture in the format of QSysInfo::currentCpuArchitecture()
    DeviceInfoLinux(const QString &prettyName, const QString &kernelRelease,
                    const QString &architecture);

    QString osVersion() const override { return m_osVersion; }
    QString cpuArch() const override { return m_cpuArch; }

private:
    QString m_osVersion;
    QString m_cpuArch;
};

} // namespace quellora
