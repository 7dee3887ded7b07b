#include "panels/history/HistoryModel.h"

#include "history/DayLabel.h"
#include "history/ThreadController.h"

#include <algorithm>
#include <utility>

namespace quellora {

HistoryModel::HistoryModel(HistoryController &history, const ThreadController &threads,
                           const QLocale &locale, Clock clock, QObject *parent)
    : QAbstractListModel(parent)
    , m_history(history)
    , m_threads(threads)
    , m_locale(locale)
    , m_timeFormat(locale.timeFormat(QLocale::ShortFormat).remove(QStringLiteral(":ss")))
    , m_clock(std::move(clock))
{
    connect(&history, &HistoryController::openChanged, this, &HistoryModel::openStateChanged);
    connect(&history, &HistoryController::progressChanged, this, &HistoryModel::progressChanged);
    connect(&history, &HistoryController::noticeChanged, this, &HistoryModel::noticeChanged);
    connect(&history, &HistoryController::sessionsReset, this, &HistoryModel::rebuild);
    connect(&history, &HistoryController::sessionsAppended, this, &HistoryModel::append);
    connect(&history, &HistoryController::sessionRemoved, this, &HistoryModel::removeAt);
    connect(&history, &HistoryController::sessionChanged, this, &HistoryModel::changeAt);
    connect(&threads, &ThreadController::sessionChanged, this, [this] {
        if (isOpen() && !m_visible.isEmpty())
            Q_EMIT dataChanged(index(0), index(count() - 1), {IsCurrentRole});
    });
    rebuild();
}

int HistoryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QHash<int, QByteArray> HistoryModel::roleNames() const
{
    return {
        {TitleRole, "title"}, {MatchStartRole, "matchStart"}, {MatchLengthRole, "matchLength"},
        {TimeRole, "time"},   {TurnsRole, "turns"},           {NotesRole, "notes"},
        {DayRole, "day"},     {IsCurrentRole, "isCurrent"},
    };
}

const ThreadSummary &HistoryModel::at(int row) const
{
    return m_history.historySessions().at(m_visible.at(row));
}

QVariant HistoryModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= count())
        return {};
    // While a thread is being taken out, its row still stands.
    if (m_visible.at(index.row()) >= m_history.historySessions().size())
        return {};
    const ThreadSummary &thread = at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return thread.title().replace(QLatin1Char('\n'), QLatin1Char(' '));
    case MatchStartRole:
        return m_needle.isEmpty() ? -1 : int(m_locale.toLower(thread.title()).indexOf(m_needle));
    case MatchLengthRole:
        return int(m_needle.size());
    case TimeRole:
        return m_locale.toString(thread.updatedAt.toLocalTime().time(), m_timeFormat);
    case TurnsRole:
        return int(thread.turns);
    case NotesRole:
        return int(thread.notes);
    case DayRole:
        return dayLabel(thread.updatedAt, m_clock(), m_locale);
    case IsCurrentRole:
        return m_threads.currentSession() && m_threads.currentSession()->id == thread.id;
    default:
        return {};
    }
}

bool HistoryModel::matches(const ThreadSummary &thread) const
{
    return m_needle.isEmpty() || m_locale.toLower(thread.title()).contains(m_needle);
}

void HistoryModel::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    Q_EMIT searchTextChanged();
    const QString needle = m_locale.toLower(text.trimmed());
    if (needle == m_needle)
        return;
    m_needle = needle;
    rebuild();
}

void HistoryModel::rebuild()
{
    beginResetModel();
    m_visible.clear();
    const QList<ThreadSummary> &threads = m_history.historySessions();
    for (qsizetype position = 0; position < threads.size(); ++position) {
        if (matches(threads.at(position)))
            m_visible.append(position);
    }
    endResetModel();
    Q_EMIT countChanged();
}

void HistoryModel::append(qsizetype first)
{
    QList<qsizetype> added;
    const QList<ThreadSummary> &threads = m_history.historySessions();
    for (qsizetype position = first; position < threads.size(); ++position) {
        if (matches(threads.at(position)))
            added.append(position);
    }
    if (!added.isEmpty()) {
        beginInsertRows({}, count(), count() + int(added.size()) - 1);
        m_visible.append(added);
        endInsertRows();
    }
    Q_EMIT countChanged();
}

void HistoryModel::removeAt(qsizetype position)
{
    const auto it = std::lower_bound(m_visible.begin(), m_visible.end(), position);
    const bool isShown = it != m_visible.end() && *it == position;
    std::for_each(isShown ? std::next(it) : it, m_visible.end(), [](qsizetype &later) { --later; });
    if (isShown) {
        const int row = int(std::distance(m_visible.begin(), it));
        beginRemoveRows({}, row, row);
        m_visible.removeAt(row);
        endRemoveRows();
    }
    Q_EMIT countChanged();
}

void HistoryModel::changeAt(qsizetype position)
{
    const auto it = std::lower_bound(m_visible.begin(), m_visible.end(), position);
    const bool isShown = it != m_visible.end() && *it == position;
    if (isShown != matches(m_history.historySessions().at(position))) {
        rebuild();
        return;
    }
    if (!isShown)
        return;
    const QModelIndex changed = index(int(std::distance(m_visible.begin(), it)));
    Q_EMIT dataChanged(changed, changed, {TitleRole, MatchStartRole, Qt::DisplayRole});
}

void HistoryModel::openStateChanged()
{
    if (!isOpen()) {
        cancelDelete();
        Q_EMIT renamingChanged();
    }
    setSearchText({});
    Q_EMIT openChanged();
}

double HistoryModel::progress() const
{
    return m_history.threadsInAll() > 0
               ? double(m_history.threadsRead()) / double(m_history.threadsInAll())
               : 0.0;
}

QString HistoryModel::progressText() const
{
    return QStringLiteral("Reading threads… %1 of %2")
        .arg(m_locale.toString(m_history.threadsRead()),
             m_locale.toString(m_history.threadsInAll()));
}

void HistoryModel::open(int row)
{
    if (row >= 0 && row < count())
        m_history.loadSession(at(row).id);
}

void HistoryModel::setRenaming(bool isRenaming)
{
    if (isRenaming == this->isRenaming())
        return;
    m_history.setRenamingHistoryRow(isRenaming);
    Q_EMIT renamingChanged();
}

void HistoryModel::rename(int row, const QString &title)
{
    // Leaving the field as it was is no wish for a title of its own.
    if (row >= 0 && row < count() && title != at(row).title())
        m_history.renameSession(at(row).id, title);
}

void HistoryModel::requestDelete(int row)
{
    if (row < 0 || row >= count())
        return;
    m_pendingDelete = at(row).id;
    m_deleteText = QLatin1Char('"') + at(row).title() +
                   QStringLiteral("\" will be permanently removed from your Mac. This can't be "
                                  "undone.");
    Q_EMIT pendingDeleteChanged();
}

void HistoryModel::cancelDelete()
{
    if (!m_pendingDelete)
        return;
    m_pendingDelete.reset();
    Q_EMIT pendingDeleteChanged();
}

void HistoryModel::confirmDelete()
{
    if (const auto id = std::exchange(m_pendingDelete, std::nullopt)) {
        Q_EMIT pendingDeleteChanged();
        m_history.deleteSession(*id);
    }
}

int HistoryModel::currentRow() const
{
    const auto &current = m_threads.currentSession();
    if (!current)
        return -1;
    const auto it = std::find_if(m_visible.begin(), m_visible.end(), [&](qsizetype position) {
        return m_history.historySessions().at(position).id == current->id;
    });
    return it == m_visible.end() ? -1 : int(std::distance(m_visible.begin(), it));
}

} // namespace quellora
