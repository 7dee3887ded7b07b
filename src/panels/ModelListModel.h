#pragma once

#include "backend/Records.h"
#include "base/Settings.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// The models on offer, in the backend's order, and the one that answers: the user's stored choice
/// while it is on offer, else the backend's own. Main thread only.
class ModelListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the panels' model")
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(QString selectedId READ selectedId NOTIFY selectedChanged)
    Q_PROPERTY(QString selectedName READ selectedName NOTIFY selectedChanged)
    Q_PROPERTY(QString answererName READ answererName NOTIFY selectedChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, DisplayNameRole, DescriptorRole };

    /// @param settings must outlive the model
    explicit ModelListModel(Settings &settings, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return int(m_models.size()); }
    /// Replaces the list; views keep their state when nothing changed.
    /// @param backendsChoice id of the model that answers where the user has chosen none
    void setOffer(const QList<ModelOption> &models, const QString &backendsChoice);
    /// Id of the model that answers; empty when neither choice is on offer.
    QString selectedId() const;
    /// Its display name; "Model" without one.
    QString selectedName() const;
    /// Whom texts name as the one who answers.
    QString answererName() const;
    /// Stores a model on offer as the user's choice; nothing for another id.
    Q_INVOKABLE void choose(const QString &id);
    /// Row of the model with this id, or -1.
    Q_INVOKABLE int rowOf(const QString &id) const;
    Q_INVOKABLE QString idAt(int row) const;

Q_SIGNALS:
    void countChanged();
    /// The model that answers, or the list in which it has its name, may have changed.
    void selectedChanged();

private:
    Settings &m_settings;
    QList<ModelOption> m_models;
    QString m_backendsChoice;
};

} // namespace quellora
