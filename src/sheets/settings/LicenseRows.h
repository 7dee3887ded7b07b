#pragma once

#include "BundledComponents.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// List model of the work of others in the program, with their licences. Main thread only.
class LicenseRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
public:
    enum Role { NameRole = Qt::UserRole + 1, VersionRole, LicenseRole, TextRole };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    const QList<BundledComponent> m_components = bundledComponents();
};

} // namespace quellora
