#include "panels/ModelListModel.h"

#include "backend/Answerer.h"

#include <algorithm>

namespace quellora {

ModelListModel::ModelListModel(Settings &settings, QObject *parent)
    : QAbstractListModel(parent), m_settings(settings)
{
    connect(&m_settings, &Settings::selectedModelIdChanged, this, &ModelListModel::selectedChanged);
}

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
    case DestinationRole:
        return destinationName(model.destination, m_backend);
    case PictureHintRole: {
        const QString place = destinationName(model.destination, m_backend);
        if (place.isEmpty())
            return QString();
        return (place == model.destination ? tr("Pictures go to %1") : tr("Pictures stay on %1"))
            .arg(place);
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> ModelListModel::roleNames() const
{
    return {{IdRole, "modelId"},
            {DisplayNameRole, "displayName"},
            {DescriptorRole, "descriptor"},
            {DestinationRole, "destination"},
            {PictureHintRole, "pictureHint"}};
}

void ModelListModel::setOffer(const QList<ModelOption> &models, const QString &backendDefaultId)
{
    if (m_models == models && m_backendDefaultId == backendDefaultId)
        return;
    m_backendDefaultId = backendDefaultId;
    if (m_models != models) {
        const bool hasCountChanged = m_models.size() != models.size();
        beginResetModel();
        m_models = models;
        endResetModel();
        if (hasCountChanged)
            Q_EMIT countChanged();
    }
    Q_EMIT selectedChanged();
}

QString ModelListModel::selectedId() const
{
    // A stored choice that is not available stays stored and is used again once it is available.
    for (const QString &id : {m_settings.selectedModelId(), m_backendDefaultId}) {
        if (!id.isEmpty() && rowOf(id) >= 0)
            return id;
    }
    return {};
}

QString ModelListModel::selectedName() const
{
    const int row = rowOf(selectedId());
    return row < 0 ? QStringLiteral("Model") : m_models.at(row).displayName;
}

QString ModelListModel::answererName() const
{
    return quellora::answererName(m_models, selectedId());
}

void ModelListModel::choose(const QString &id)
{
    if (rowOf(id) >= 0)
        m_settings.setSelectedModelId(id);
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
