#pragma once

#include "backend/Records.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// The models offered in the picker, in the backend's order.
class ModelListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the panels' model")
    Q_PROPERTY(int count READ count NOTIFY countChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, DisplayNameRole, DescriptorRole };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return int(m_models.size()); }
    const QList<ModelOption> &models() const { return m_models; }
    /// Replaces the list; views keep their state when nothing changed.
    void setModels(const QList<ModelOption> &models);
    /// Row of the model with this id, or -1.
    Q_INVOKABLE int rowOf(const QString &id) const;
    Q_INVOKABLE QString idAt(int row) const;

Q_SIGNALS:
    void countChanged();

private:
    QList<ModelOption> m_models;
};

} // namespace quellora
