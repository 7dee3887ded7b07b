#pragma once

#include "base/PromptPresets.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// List model of the prompts in the settings: one row per prompt, and one more while a new prompt
/// is being written. One row at a time is edited or asks whether to delete. Main thread only.
class PromptRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
    Q_PROPERTY(bool canAdd READ canAdd NOTIFY stateChanged)
    Q_PROPERTY(bool isFull READ isFull NOTIFY stateChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY stateChanged)
    Q_PROPERTY(QString error READ error NOTIFY stateChanged)
public:
    enum Role {
        /// Empty for a new prompt.
        NameRole = Qt::UserRole + 1,
        TextRole,
        EditingRole,
        /// The row asks whether to delete the prompt.
        AskingRole,
    };

    /// @param presets must outlive the model
    explicit PromptRows(PromptPresets &presets, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    bool canAdd() const { return !isFull() && !m_isAdding; }
    bool isFull() const { return m_presets.isFull(); }
    /// Whether a row is edited or asks.
    bool isBusy() const { return m_busyRow >= 0; }
    /// Why the edited prompt was not saved; empty if nothing is wrong.
    QString error() const { return m_error; }

    // Rows that do not exist are ignored.
    /// Adds a row for a new prompt and edits it.
    Q_INVOKABLE void add();
    Q_INVOKABLE void edit(int row);
    /// Saves the edited prompt or sets error().
    Q_INVOKABLE void save(const QString &name, const QString &text);
    Q_INVOKABLE void askToRemove(int row);
    /// Removes the prompt whose row asks.
    Q_INVOKABLE void remove();
    /// Ends editing and asking without a change.
    Q_INVOKABLE void cancel();
    /// Moves a prompt by @p steps rows, unless it is busy.
    Q_INVOKABLE void move(int row, int steps);

Q_SIGNALS:
    void stateChanged();

private:
    bool isPrompt(int row) const { return row >= 0 && row < m_list.size(); }
    void setBusy(int row, bool isAsking);
    void followPresets();

    PromptPresets &m_presets;
    /// As listed.
    QList<PromptPreset> m_list;
    /// The row that is edited or asks; -1 if there is none.
    int m_busyRow = -1;
    bool m_isAsking = false;
    /// Whether the last row is a new prompt.
    bool m_isAdding = false;
    bool m_isSaving = false;
    QString m_error;
};

} // namespace quellora
