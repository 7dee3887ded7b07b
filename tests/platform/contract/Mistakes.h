#pragma once

#include "platform/Platform.h"

#include <QMap>
#include <QString>

#include <memory>

namespace quellora {

/// Mistakes that can be injected into any port, each with the test that must detect it, as
/// "Suite::test". They verify that the contract can fail.
QMap<QString, QString> injectableMistakes();

/// Wraps the platform in one that makes the given mistake.
/// @param name a key of injectableMistakes()
std::unique_ptr<Platform> withMistake(std::unique_ptr<Platform> platform, const QString &name);

} // namespace quellora
