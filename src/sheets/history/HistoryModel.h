#pragma once

#include "history/HistoryController.h"
#include "history/TextFolding.h"
#include "platform/Vocabulary.h"

#include <QAbstractListModel>
#include <QLocale>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

namespace quellora {

/// View model of the History sidebar: the stored threads that match the search in title or text,
/// newest first, with day labels. Titles are searched at once, texts in the background. Main thread
/// only.
///
/// Texts are generated on demand, so that the cost depends on the visible rows, not on the number
/// of threads.
class HistoryModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY openChanged)
    Q_PROPERTY(bool isRenaming READ isRenaming NOTIFY renamingChanged)
    Q_PROPERTY(bool isSearching READ isSearching NOTIFY searchingChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(bool hasThreads READ hasThreads NOTIFY countChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY progressChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(QString progressText READ progressText NOTIFY progressChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool isDeletePending READ isDeletePending NOTIFY pendingDeleteChanged)
    Q_PROPERTY(QString deleteText READ deleteText NOTIFY pendingDeleteChanged)
    Q_PROPERTY(QString deleteTitle READ deleteTitle NOTIFY pendingDeleteChanged)
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        /// Position of the search text in the title in UTF-16 units; -1 if it is not in the title.
        MatchStartRole,
        MatchLengthRole,
        /// A line of the thread's text with the search text, its position in UTF-16 units, and the
        /// kind of text; empty if the search text is in the title.
        SnippetRole,
        SnippetStartRole,
        SnippetLengthRole,
        SnippetPlaceRole,
        TimeRole,
        TurnsRole,
        NotesRole,
        DayRole,
        IsCurrentRole,
    };

    using Clock = std::function<QDateTime()>;

    /// @param history, threads must outlive the model
    /// @param vocabulary platform-specific name of the computer
    HistoryModel(HistoryController &history, const ThreadController &threads, Vocabulary vocabulary,
                 const QLocale &locale = QLocale::system(),
                 Clock clock = QDateTime::currentDateTime, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    bool isOpen() const { return m_history.isHistorySidebarOpen(); }
    bool isRenaming() const { return m_history.isRenamingHistoryRow(); }
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString &text);
    /// Whether texts are being searched, so that further rows may come.
    bool isSearching() const { return m_history.search().isRunning(); }
    bool hasThreads() const { return !m_history.historySessions().isEmpty(); }
    bool isLoading() const { return m_history.isLoading(); }
    /// Loaded fraction of the list, 0 to 1.
    double progress() const;
    QString progressText() const;
    QString notice() const { return m_history.notice(); }
    bool isDeletePending() const { return m_pendingDelete.has_value(); }
    /// Text of the confirmation dialog for the pending deletion.
    QString deleteText() const { return m_deleteText; }
    /// The thread's title as contained in deleteText().
    QString deleteTitle() const { return m_deleteTitle; }

    Q_INVOKABLE void close() { m_history.close(); }
    /// Opens the thread, at the hit if the search found its text.
    Q_INVOKABLE void open(int row);
    Q_INVOKABLE void rename(int row, const QString &title);
    /// Call when a title field is opened or closed.
    Q_INVOKABLE void setRenaming(bool isRenaming);
    /// Asks for the choices of exporting and copying a thread.
    Q_INVOKABLE void requestExport(int row);
    Q_INVOKABLE void requestDelete(int row);
    Q_INVOKABLE void cancelDelete();
    Q_INVOKABLE void confirmDelete();
    /// The row of the current thread, or -1.
    Q_INVOKABLE int currentRow() const;

Q_SIGNALS:
    void openChanged();
    void renamingChanged();
    void searchTextChanged();
    void searchingChanged();
    void countChanged();
    void progressChanged();
    void noticeChanged();
    void pendingDeleteChanged();
    void exportRequested(const QUuid &id, const QString &title);
    /// The user has deleted the thread of this row, which is no longer in the model.
    void rowDeleted(int row);
    /// The deleted thread of this row is back.
    void rowRestored(int row);

private:
    int count() const { return int(m_visible.size()); }
    const ThreadSummary &at(int row) const;
    QVariant snippetData(const ThreadSummary &thread, int role) const;
    std::optional<TextRange> matchInTitle(const ThreadSummary &thread) const;
    bool matches(qsizetype position) const;
    /// Follows a controller whose list has been replaced.
    void readTitles();
    void rebuild();
    void searchTexts();
    void hitsChanged(const QSet<QUuid> &changed);
    /// Adds the rows that are missing, only some at a time until there are enough to fill a view.
    void addMissingRows();
    bool isVisibleAt(int row, qsizetype position) const;
    // Positions refer to the controller's list, rows to the filtered one.

    /// The first row whose position is at least @p position.
    int firstRowFrom(qsizetype position) const;
    void threadsInserted(qsizetype first, qsizetype count);
    void threadsRemoved(qsizetype first, qsizetype count);
    void threadDeleted(qsizetype position);
    void threadRestored(qsizetype position);
    void threadChanged(qsizetype position);
    void insertVisibleRows(int row, const QList<qsizetype> &positions);
    void removeVisibleRows(int row, int count);
    void openStateChanged();

    HistoryController &m_history;
    const ThreadController &m_threads;
    Vocabulary m_vocabulary;
    QLocale m_locale;
    /// The locale's short format without seconds.
    QString m_timeFormat;
    Clock m_clock;
    /// Positions of the visible threads in the controller's list, ascending.
    QList<qsizetype> m_visible;
    /// Adds further missing rows after the view has created the last ones.
    QTimer m_fillTimer;
    QString m_searchText;
    /// Searches titles; changes its buffers only.
    mutable SearchText m_needle;
    /// The titles in the controller's list in reduced form.
    QList<QByteArray> m_titles;
    std::optional<QUuid> m_pendingDelete;
    QString m_deleteText;
    QString m_deleteTitle;
};

} // namespace quellora
