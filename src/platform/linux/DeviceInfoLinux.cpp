#include "platform/linux/DeviceInfoLinux.h"

#include <QSysInfo>

namespace quellora {

DeviceInfoLinux::DeviceInfoLinux()
    : DeviceInfoLinux(QSysInfo::prettyProductName(), QSysInfo::kernelVersion(),
                      QSysInfo::currentCpuArchitecture())
{}

DeviceInfoLinux::DeviceInfoLinux(const QString &prettyName, const QString &kernelRelease,
                                 const QString &architecture)
    : m_osVersion((prettyName.isEmpty() ? QStringLiteral("Linux") : prettyName) +
                  QStringLiteral(" (kernel ") + kernelRelease + u')')
    , m_cpuArch(architecture == QStringLiteral("arm64") ? QStringLiteral("arm64")
                                                        : QStringLiteral("x86_64"))
{}

} // namespace quellora
