#include "sheets/history/HistoryModel.h"

#include "history/DayLabel.h"
#include "history/ThreadController.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

/// A search gets its first rows in portions, because a view takes about a millisecond to create
/// each row that it shows.
constexpr int rowsPerPortion = 4;
constexpr int rowsInView = 16;
/// A frame, in milliseconds.
constexpr int portionInterval = 16;

QString placeText(const ThreadHit &hit)
{
    if (hit.version)
        return QStringLiteral("Version %1").arg(*hit.version + 1);
    switch (hit.place) {
    case ThreadHit::Place::Note:
        return QStringLiteral("Note");
    case ThreadHit::Place::Question:
        return QStringLiteral("Question");
    case ThreadHit::Place::Answer:
        return QStringLiteral("Answer");
    }
    Q_UNREACHABLE();
}

} // namespace

HistoryModel::HistoryModel(HistoryController &history, const ThreadController &threads,
                           Vocabulary vocabulary, const QLocale &locale, Clock clock,
                           QObject *parent)
    : QAbstractListModel(parent)
    , m_history(history)
    , m_threads(threads)
    , m_vocabulary(std::move(vocabulary))
    , m_locale(locale)
    , m_timeFormat(locale.timeFormat(QLocale::ShortFormat).remove(QStringLiteral(":ss")))
    , m_clock(std::move(clock))
    , m_needle(QString(), locale)
{
    connect(&history, &HistoryController::openChanged, this, &HistoryModel::openStateChanged);
    connect(&history, &HistoryController::progressChanged, this, &HistoryModel::progressChanged);
    connect(&history, &HistoryController::noticeChanged, this, &HistoryModel::noticeChanged);
    connect(&history, &HistoryController::sessionsReset, this, &HistoryModel::readTitles);
    connect(&history, &HistoryController::sessionsInserted, this, &HistoryModel::threadsInserted);
    connect(&history, &HistoryController::sessionsRemoved, this, &HistoryModel::threadsRemoved);
    connect(&history, &HistoryController::sessionDeleted, this, &HistoryModel::threadDeleted);
    connect(&history, &HistoryController::sessionRestored, this, &HistoryModel::threadRestored);
    connect(&history, &HistoryController::sessionChanged, this, &HistoryModel::threadChanged);
    connect(&history.search(), &HistorySearch::runningChanged, this,
            &HistoryModel::searchingChanged);
    connect(&history.search(), &HistorySearch::hitsChanged, this, &HistoryModel::hitsChanged);
    connect(&threads, &ThreadController::sessionChanged, this, [this] {
        if (isOpen() && !m_visible.isEmpty())
            Q_EMIT dataChanged(index(0), index(count() - 1), {IsCurrentRole});
    });
    m_fillTimer.setSingleShot(true);
    m_fillTimer.setInterval(portionInterval);
    connect(&m_fillTimer, &QTimer::timeout, this, &HistoryModel::addMissingRows);
    readTitles();
}

int HistoryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QHash<int, QByteArray> HistoryModel::roleNames() const
{
    return {
        {TitleRole, "title"},
        {MatchStartRole, "matchStart"},
        {MatchLengthRole, "matchLength"},
        {SnippetRole, "snippet"},
        {SnippetStartRole, "snippetStart"},
        {SnippetLengthRole, "snippetLength"},
        {SnippetPlaceRole, "snippetPlace"},
        {TimeRole, "time"},
        {TurnsRole, "turns"},
        {NotesRole, "notes"},
        {DayRole, "day"},
        {IsCurrentRole, "isCurrent"},
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
    // During removal, a row may still refer to a thread that the controller has already removed.
    if (m_visible.at(index.row()) >= m_history.historySessions().size())
        return {};
    const ThreadSummary &thread = at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return thread.title().replace(QLatin1Char('\n'), QLatin1Char(' '));
    case MatchStartRole: {
        const auto match = matchInTitle(thread);
        return match ? int(match->start) : -1;
    }
    case MatchLengthRole: {
        const auto match = matchInTitle(thread);
        return match ? int(match->length) : 0;
    }
    case SnippetRole:
    case SnippetStartRole:
    case SnippetLengthRole:
    case SnippetPlaceRole:
        return snippetData(thread, role);
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

QVariant HistoryModel::snippetData(const ThreadSummary &thread, int role) const
{
    const auto hit = matchInTitle(thread) ? std::nullopt : m_history.search().hitIn(thread.id);
    switch (role) {
    case SnippetStartRole:
        return hit ? int(hit->start) : 0;
    case SnippetLengthRole:
        return hit ? int(hit->length) : 0;
    case SnippetPlaceRole:
        return hit ? placeText(*hit) : QString();
    default:
        return hit ? hit->snippet : QString();
    }
}

/// In UTF-16 units.
std::optional<TextRange> HistoryModel::matchInTitle(const ThreadSummary &thread) const
{
    if (m_needle.isEmpty())
        return std::nullopt;
    const QByteArray title = thread.title().toUtf8();
    const auto match = m_needle.findIn({title.constData(), size_t(title.size())});
    if (!match)
        return std::nullopt;
    return TextRange{QString::fromUtf8(title.constData(), match->start).size(),
                     QString::fromUtf8(title.constData() + match->start, match->length).size()};
}

bool HistoryModel::matches(qsizetype position) const
{
    return m_needle.isEmpty() || m_needle.isInReduced(m_titles.at(position)) ||
           m_history.search().hasHitIn(m_history.historySessions().at(position).id);
}

void HistoryModel::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    Q_EMIT searchTextChanged();
    const SearchText needle(text, m_locale);
    if (needle == m_needle)
        return;
    m_needle = needle;
    searchTexts();
    rebuild();
}

void HistoryModel::searchTexts()
{
    HistorySearch &search = m_history.search();
    if (m_needle.isEmpty()) {
        search.stop();
        return;
    }
    ThreadQuery query{m_searchText, m_locale, {}};
    const QList<ThreadSummary> &threads = m_history.historySessions();
    query.threads.reserve(threads.size());
    for (const ThreadSummary &thread : threads)
        query.threads.append(thread.id);
    search.start(query);
}

bool HistoryModel::isVisibleAt(int row, qsizetype position) const
{
    return row < count() && m_visible.at(row) == position;
}

void HistoryModel::hitsChanged(const QSet<QUuid> &changed)
{
    const QList<ThreadSummary> &threads = m_history.historySessions();
    const int before = count();
    const bool isFilling = m_fillTimer.isActive() || before < rowsInView;
    bool isMissing = false;
    qsizetype left = changed.size();
    for (qsizetype position = 0; position < threads.size() && left > 0; ++position) {
        if (!changed.contains(threads.at(position).id))
            continue;
        --left;
        const int row = firstRowFrom(position);
        if (!matches(position)) {
            if (isVisibleAt(row, position))
                removeVisibleRows(row, 1);
            continue;
        }
        if (isVisibleAt(row, position)) {
            Q_EMIT dataChanged(index(row), index(row));
            continue;
        }
        if (isFilling) {
            isMissing = true;
            continue;
        }
        // Threads that follow each other are inserted at once.
        QList<qsizetype> added{position};
        const qsizetype end = row < count() ? m_visible.at(row) : threads.size();
        while (position + 1 < end && changed.contains(threads.at(position + 1).id) &&
               matches(position + 1)) {
            added.append(++position);
            --left;
        }
        insertVisibleRows(row, added);
    }
    if (count() != before)
        Q_EMIT countChanged();
    if (isMissing && !m_fillTimer.isActive())
        addMissingRows();
}

void HistoryModel::addMissingRows()
{
    const QList<ThreadSummary> &threads = m_history.historySessions();
    const int before = count();
    qsizetype left = before < rowsInView ? rowsPerPortion : threads.size();
    int row = 0;
    for (qsizetype position = 0; position < threads.size(); ++row) {
        const qsizetype end = row < count() ? m_visible.at(row) : threads.size();
        QList<qsizetype> added;
        for (; position < end && added.size() <= left; ++position) {
            if (matches(position))
                added.append(position);
        }
        if (added.size() > left) {
            added.removeLast();
            m_fillTimer.start();
            position = threads.size();
        }
        insertVisibleRows(row, added);
        left -= added.size();
        row += int(added.size());
        // The row that was there already.
        ++position;
    }
    if (count() != before)
        Q_EMIT countChanged();
}

void HistoryModel::readTitles()
{
    m_titles.clear();
    for (const ThreadSummary &thread : m_history.historySessions())
        m_titles.append(m_needle.reduced(thread.title()));
    rebuild();
}

void HistoryModel::rebuild()
{
    beginResetModel();
    m_visible.clear();
    m_fillTimer.stop();
    const QList<ThreadSummary> &threads = m_history.historySessions();
    for (qsizetype position = 0; position < threads.size() && !m_fillTimer.isActive(); ++position) {
        if (!matches(position))
            continue;
        if (m_visible.size() < rowsPerPortion)
            m_visible.append(position);
        else
            m_fillTimer.start();
    }
    endResetModel();
    Q_EMIT countChanged();
}

int HistoryModel::firstRowFrom(qsizetype position) const
{
    return int(std::distance(m_visible.begin(),
                             std::lower_bound(m_visible.begin(), m_visible.end(), position)));
}

void HistoryModel::insertVisibleRows(int row, const QList<qsizetype> &positions)
{
    if (positions.isEmpty())
        return;
    const int added = int(positions.size());
    beginInsertRows({}, row, row + added - 1);
    m_visible.insert(row, added, 0);
    std::copy(positions.begin(), positions.end(), m_visible.begin() + row);
    endInsertRows();
}

void HistoryModel::removeVisibleRows(int row, int count)
{
    if (count == 0)
        return;
    beginRemoveRows({}, row, row + count - 1);
    m_visible.remove(row, count);
    endRemoveRows();
}

void HistoryModel::threadsInserted(qsizetype first, qsizetype count)
{
    const int row = firstRowFrom(first);
    std::for_each(m_visible.begin() + row, m_visible.end(),
                  [count](qsizetype &later) { later += count; });
    m_titles.insert(first, count, QByteArray());
    for (qsizetype position = first; position < first + count; ++position)
        m_titles[position] = m_needle.reduced(m_history.historySessions().at(position).title());
    QList<qsizetype> added;
    for (qsizetype position = first; position < first + count; ++position) {
        if (matches(position))
            added.append(position);
    }
    insertVisibleRows(row, added);
    if (!m_needle.isEmpty()) {
        QList<QUuid> ids;
        for (qsizetype position = first; position < first + count; ++position)
            ids.append(m_history.historySessions().at(position).id);
        m_history.search().add(ids);
    }
    Q_EMIT countChanged();
}

void HistoryModel::threadsRemoved(qsizetype first, qsizetype count)
{
    const int row = firstRowFrom(first);
    const int end = firstRowFrom(first + count);
    std::for_each(m_visible.begin() + end, m_visible.end(),
                  [count](qsizetype &later) { later -= count; });
    m_titles.remove(first, count);
    removeVisibleRows(row, end - row);
    Q_EMIT countChanged();
}

void HistoryModel::threadDeleted(qsizetype position)
{
    const int row = firstRowFrom(position);
    const bool isShown = isVisibleAt(row, position);
    threadsRemoved(position, 1);
    if (isShown)
        Q_EMIT rowDeleted(row);
}

void HistoryModel::threadRestored(qsizetype position)
{
    const int row = firstRowFrom(position);
    if (isVisibleAt(row, position))
        Q_EMIT rowRestored(row);
}

void HistoryModel::threadChanged(qsizetype position)
{
    const int row = firstRowFrom(position);
    const bool isShown = isVisibleAt(row, position);
    m_titles[position] = m_needle.reduced(m_history.historySessions().at(position).title());
    if (!m_needle.isEmpty())
        m_history.search().add({m_history.historySessions().at(position).id});
    const bool shouldBeShown = matches(position);
    if (isShown && shouldBeShown)
        Q_EMIT dataChanged(index(row), index(row));
    else if (isShown)
        removeVisibleRows(row, 1);
    else if (shouldBeShown)
        insertVisibleRows(row, {position});
    if (isShown != shouldBeShown)
        Q_EMIT countChanged();
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
    if (row < 0 || row >= count())
        return;
    const QUuid id = at(row).id;
    const auto hit = m_history.search().hitIn(id);
    m_history.loadSession(id, hit ? std::optional(FoundText{m_searchText, hit->entry, hit->version})
                                  : std::nullopt);
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
    // Unchanged text must not become a custom title.
    if (row >= 0 && row < count() && title != at(row).title())
        m_history.renameSession(at(row).id, title);
}

void HistoryModel::requestExport(int row)
{
    if (row >= 0 && row < count())
        Q_EMIT exportRequested(at(row).id, index(row).data(TitleRole).toString());
}

void HistoryModel::requestDelete(int row)
{
    if (row < 0 || row >= count())
        return;
    m_pendingDelete = at(row).id;
    m_deleteTitle = index(row).data(TitleRole).toString();
    m_deleteText = QLatin1Char('"') + m_deleteTitle +
                   QStringLiteral("\" will be permanently removed from ") + m_vocabulary.computer +
                   QLatin1Char('.');
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
