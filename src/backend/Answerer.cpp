#include "backend/Answerer.h"

#include <algorithm>

namespace quellora {

QString answererName(const QList<ModelOption> &models, const QString &selectedId)
{
    const bool isDefaultAvailable =
        std::any_of(models.begin(), models.end(), [](const ModelOption &model) {
            return model.id.contains(givenAnswerer, Qt::CaseInsensitive) ||
                   model.displayName.contains(givenAnswerer, Qt::CaseInsensitive);
        });
    if (isDefaultAvailable || models.isEmpty())
        return givenAnswerer;
    const auto selected =
        std::find_if(models.begin(), models.end(),
                     [&selectedId](const ModelOption &model) { return model.id == selectedId; });
    const QString name = selected == models.end() ? QString() : selected->displayName.simplified();
    return name.isEmpty() ? QStringLiteral("the model") : name;
}

} // namespace quellora
