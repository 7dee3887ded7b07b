#pragma once

#include "platform/Platform.h"

namespace quellora {

/// For systems without symbol images of their own; callers draw the bundled ones.
class NoSystemSymbols : public SystemSymbols
{
public:
    QImage image(const QString &, double, int) const override { return {}; }
};

} // namespace quellora
