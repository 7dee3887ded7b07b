#pragma once

#include "backend/Records.h"

namespace quellora {

/// Default name of the assistant in user-visible texts.
inline const QString givenAnswerer = QStringLiteral("Claude");

/// Name of the assistant in user-visible texts: the default name if @p models is empty or any
/// model's id or display name contains it (case-insensitive). Otherwise the selected model's name,
/// or "the model" if none is selected.
/// @param selectedId id of the selected model; empty if none is selected
QString answererName(const QList<ModelOption> &models, const QString &selectedId);

} // namespace quellora
