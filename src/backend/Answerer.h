#pragma once

#include "backend/Records.h"

namespace quellora {

/// Default name of the answering model in texts for the user.
inline const QString givenAnswerer = QStringLiteral("Claude");

/// Whom texts name while these models are on offer: the given name, unless no model has it in its
/// id or name, in whatever case. Then it is the chosen model's name, or "the model" while none is
/// chosen. With no models at all the given name stays.
/// @param selectedId id of the chosen model; empty when none is
QString answererName(const QList<ModelOption> &models, const QString &selectedId);

} // namespace quellora
