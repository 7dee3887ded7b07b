#include "panels/ModelListModel.h"

#include <algorithm>

namespace quellora {

int ModelListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant ModelListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const ModelOption &model = m_models.at(index.row());
    switch (role) {
    case IdRole:
        return model.id;
    case Qt::DisplayRole:
    case DisplayNameRole:
        return model.displayName;
    case DescriptorRole:
        return model.descriptor;
    default:
        return {};
    }
}

QHash<int, QByteArray> ModelListModel::roleNames() const
{
    return {{IdRole, "modelId"}, {DisplayNameRole, "displayName"}, {DescriptorRole, "descriptor"}};
}

void ModelListModel::setModels(const QList<ModelOption> &models)
{
    if (m_models == models)
        return;
    const bool countDiffers = m_models.size() != models.size();
    beginResetModel();
    m_models = models;
    endResetModel();
    if (countDiffers)
        Q_EMIT countChanged();
}

int ModelListModel::rowOf(const QString &id) const
{
    const auto it = std::find_if(m_models.cbegin(), m_models.cend(),
                                 [&id](const ModelOption &model) { return model.id == id; });
    return it == m_models.cend() ? -1 : int(it - m_models.cbegin());
}

QString ModelListModel::idAt(int row) const
{
    return row >= 0 && row < count() ? m_models.at(row).id : QString();
}

} // namespace quellora
