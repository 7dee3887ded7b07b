#pragma once

#include "backend/Records.h"
#include "base/Settings.h"

#include <QAbstractListModel>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// The available models in the backend's order and the selected one: the user's stored choice if it
/// is available, else the backend's default. Main thread only.
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
    enum Role {
        IdRole = Qt::UserRole + 1,
        DisplayNameRole,
        DescriptorRole,
        DestinationRole,
        PictureHintRole
    };

    /// @param settings must outlive the model
    explicit ModelListModel(Settings &settings, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return int(m_models.size()); }
    /// The backend that the list comes from: its own machine is the user's only if this is local.
    void setBackend(const QUrl &backend) { m_backend = backend; }
    /// Replaces the list; the model is not reset if the list is unchanged.
    /// @param backendDefaultId id of the model used if the user has chosen none
    void setOffer(const QList<ModelOption> &models, const QString &backendDefaultId);
    /// Id of the selected model; empty if neither the user's nor the backend's is available.
    QString selectedId() const;
    /// Display name of the selected model; "Model" if there is none.
    QString selectedName() const;
    /// Name of the answerer in user-visible texts.
    QString answererName() const;
    /// Stores the user's choice; ignored if the model is not available.
    Q_INVOKABLE void choose(const QString &id);
    /// Row of the model with this id, or -1.
    Q_INVOKABLE int rowOf(const QString &id) const;
    Q_INVOKABLE QString idAt(int row) const;

Q_SIGNALS:
    void countChanged();
    /// The selected model or its name may have changed.
    void selectedChanged();

private:
    Settings &m_settings;
    QList<ModelOption> m_models;
    QString m_backendDefaultId;
    QUrl m_backend;
};

} // namespace quellora
