#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The system's symbol images, in regular weight. Main thread only.
class SystemSymbolsMac : public SystemSymbols
{
public:
    QImage image(const QString &name, double points, int scale) const override;
};

} // namespace quellora
