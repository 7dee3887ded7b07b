#pragma once

#include "platform/Platform.h"

namespace quellora {

/// SystemSymbols for systems that provide none; callers fall back to the bundled images.
class NoSystemSymbols : public SystemSymbols
{
public:
    QImage image(const QString &, double, int) const override { return {}; }
};

} // namespace quellora
