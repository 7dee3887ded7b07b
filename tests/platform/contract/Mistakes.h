#pragma once

#include "platform/Platform.h"

#include <QMap>
#include <QString>

#include <memory>

namespace quellora {

/// Mistakes to be planted in any port, each with the test that is there to notice it, as
/// "Suite::test". They show that the contract can fail.
QMap<QString, QString> plantedMistakes();

/// The platform with one mistake in it.
/// @param name a key of plantedMistakes()
std::unique_ptr<Platform> withMistake(std::unique_ptr<Platform> platform, const QString &name);

} // namespace quellora
