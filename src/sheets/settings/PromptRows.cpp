#include "sheets/settings/PromptRows.h"

#include <algorithm>

namespace quellora {

PromptRows::PromptRows(PromptPresets &presets, QObject *parent)
    : QAbstractListModel(parent), m_presets(presets), m_list(presets.list())
{
    connect(&presets, &PromptPresets::changed, this, &PromptRows::followPresets);
}

void PromptRows::followPresets()
{
    // Changes made here are listed already.
    if (m_isSaving || m_list == m_presets.list())
        return;
    beginResetModel();
    m_list = m_presets.list();
    m_isAdding = false;
    m_busyRow = -1;
    m_error.clear();
    endResetModel();
    Q_EMIT stateChanged();
}

int PromptRows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_list.size()) + (m_isAdding ? 1 : 0);
}

QVariant PromptRows::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const PromptPreset prompt = m_list.value(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return prompt.name;
    case TextRole:
        return prompt.text;
    case EditingRole:
        return index.row() == m_busyRow && !m_isAsking;
    case AskingRole:
        return index.row() == m_busyRow && m_isAsking;
    default:
        return {};
    }
}

QHash<int, QByteArray> PromptRows::roleNames() const
{
    return {{NameRole, "name"},
            {TextRole, "text"},
            {EditingRole, "isEditing"},
            {AskingRole, "isAsking"}};
}

void PromptRows::setBusy(int row, bool isAsking)
{
    m_busyRow = row;
    m_isAsking = isAsking;
    m_error.clear();
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), {EditingRole, AskingRole});
    Q_EMIT stateChanged();
}

void PromptRows::add()
{
    if (!canAdd())
        return;
    cancel();
    const int row = int(m_list.size());
    beginInsertRows({}, row, row);
    m_isAdding = true;
    endInsertRows();
    setBusy(row, false);
}

void PromptRows::edit(int row)
{
    if (!isPrompt(row))
        return;
    cancel();
    setBusy(row, false);
}

void PromptRows::save(const QString &name, const QString &text)
{
    if (!isBusy() || m_isAsking)
        return;
    const QString id = m_list.value(m_busyRow).id;
    m_error = m_presets.problem(name, text, id);
    if (!m_error.isEmpty()) {
        Q_EMIT stateChanged();
        return;
    }
    const int row = m_busyRow;
    m_isSaving = true;
    if (m_isAdding)
        m_presets.add(name, text);
    else
        m_presets.change(id, name, text);
    m_isSaving = false;
    // The row of a new prompt becomes the prompt's.
    m_isAdding = false;
    m_list = m_presets.list();
    Q_EMIT dataChanged(index(row), index(row));
    setBusy(-1, false);
}

void PromptRows::askToRemove(int row)
{
    if (!isPrompt(row))
        return;
    cancel();
    setBusy(row, true);
}

void PromptRows::remove()
{
    if (!isBusy() || !m_isAsking)
        return;
    const int row = m_busyRow;
    const QString id = m_list.at(row).id;
    beginRemoveRows({}, row, row);
    m_list.removeAt(row);
    m_busyRow = -1;
    endRemoveRows();
    m_presets.remove(id);
    setBusy(-1, false);
}

void PromptRows::cancel()
{
    if (!isBusy())
        return;
    if (m_isAdding) {
        const int row = int(m_list.size());
        beginRemoveRows({}, row, row);
        m_isAdding = false;
        m_busyRow = -1;
        endRemoveRows();
    }
    setBusy(-1, false);
}

void PromptRows::move(int row, int steps)
{
    if (!isPrompt(row) || isBusy())
        return;
    const int to = std::clamp(row + steps, 0, int(m_list.size()) - 1);
    if (to == row)
        return;
    const QString id = m_list.at(row).id;
    // Qt counts the places before the move.
    beginMoveRows({}, row, row, {}, to > row ? to + 1 : to);
    m_list.move(row, to);
    endMoveRows();
    m_presets.move(id, to - row);
}

} // namespace quellora
