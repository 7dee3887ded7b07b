#include "panels/PromptListModel.h"

#include <algorithm>

namespace quellora {

namespace {

/// Long enough for any width of the list.
constexpr qsizetype previewLength = 200;

bool isNameAskedFor(const QString &name, QStringView typed)
{
    for (qsizetype start = 0; start >= 0; start = name.indexOf(u' ', start)) {
        if (start > 0)
            ++start;
        if (QStringView(name).mid(start).startsWith(typed, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

} // namespace

int PromptListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant PromptListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const PromptPreset &prompt = m_shown.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return prompt.name;
    case PreviewRole:
        return prompt.text.left(previewLength).simplified();
    case HotkeyRole:
        return QLatin1StringView("prompt.") + prompt.id;
    default:
        return {};
    }
}

QHash<int, QByteArray> PromptListModel::roleNames() const
{
    return {{NameRole, "name"}, {PreviewRole, "preview"}, {HotkeyRole, "hotkey"}};
}

void PromptListModel::setPrompts(const QList<PromptPreset> &prompts)
{
    const bool wasAvailable = isAvailable();
    m_prompts = prompts;
    showAll();
    if (wasAvailable != isAvailable())
        Q_EMIT isAvailableChanged();
}

void PromptListModel::show(const QList<PromptPreset> &prompts)
{
    if (prompts == m_shown)
        return;
    const int before = count();
    beginResetModel();
    m_shown = prompts;
    endResetModel();
    if (before != count())
        Q_EMIT countChanged();
}

void PromptListModel::showAll()
{
    show(m_prompts);
}

bool PromptListModel::showMatches(const QString &typed)
{
    QList<PromptPreset> matches;
    // The whole of a longer text is compared with no name.
    if (typed.startsWith(u'/') && typed.size() <= PromptPresets::maximumNameLength + 1) {
        std::copy_if(m_prompts.begin(), m_prompts.end(), std::back_inserter(matches),
                     [asked = QStringView(typed).mid(1)](const PromptPreset &prompt) {
                         return isNameAskedFor(prompt.name, asked);
                     });
    }
    show(matches);
    return !matches.isEmpty();
}

QString PromptListModel::textAt(int row) const
{
    return row < 0 || row >= count() ? QString() : m_shown.at(row).text;
}

} // namespace quellora
