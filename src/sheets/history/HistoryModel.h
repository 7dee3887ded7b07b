#pragma once

#include "history/HistoryController.h"
#include "platform/Vocabulary.h"

#include <QAbstractListModel>
#include <QLocale>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

namespace quellora {

/// What the History sidebar shows: the stored threads that match the search, newest first, each
/// with the label of its day. Main thread only.
///
/// Texts are made when a row asks for them, so that ten thousand threads cost no more than those on
/// show.
class HistoryModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY openChanged)
    Q_PROPERTY(bool isRenaming READ isRenaming NOTIFY renamingChanged)
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
        /// Where the search text stands in the title, in characters; -1 without a search.
        MatchStartRole,
        MatchLengthRole,
        TimeRole,
        TurnsRole,
        NotesRole,
        DayRole,
        IsCurrentRole,
    };

    using Clock = std::function<QDateTime()>;

    /// Both borrowed.
    /// @param words in which the machine is named
    HistoryModel(HistoryController &history, const ThreadController &threads, Vocabulary words,
                 const QLocale &locale = QLocale::system(),
                 Clock clock = QDateTime::currentDateTime, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    bool isOpen() const { return m_history.isHistorySidebarOpen(); }
    bool isRenaming() const { return m_history.isRenamingHistoryRow(); }
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString &text);
    bool hasThreads() const { return !m_history.historySessions().isEmpty(); }
    bool isLoading() const { return m_history.isLoading(); }
    /// Share of the list that has been read, 0 to 1.
    double progress() const;
    QString progressText() const;
    QString notice() const { return m_history.notice(); }
    bool isDeletePending() const { return m_pendingDelete.has_value(); }
    /// What the dialog says about the thread that waits for confirmation.
    QString deleteText() const { return m_deleteText; }
    /// The thread's title as it stands in deleteText().
    QString deleteTitle() const { return m_deleteTitle; }

    Q_INVOKABLE void close() { m_history.close(); }
    Q_INVOKABLE void open(int row);
    Q_INVOKABLE void rename(int row, const QString &title);
    /// A title field was opened or left.
    Q_INVOKABLE void setRenaming(bool isRenaming);
    Q_INVOKABLE void requestDelete(int row);
    Q_INVOKABLE void cancelDelete();
    Q_INVOKABLE void confirmDelete();
    /// The row of the current thread, or -1.
    Q_INVOKABLE int currentRow() const;

Q_SIGNALS:
    void openChanged();
    void renamingChanged();
    void searchTextChanged();
    void countChanged();
    void progressChanged();
    void noticeChanged();
    void pendingDeleteChanged();
    /// The user deleted the thread that was in this row.
    void rowDeleted(int row);

private:
    int count() const { return int(m_visible.size()); }
    const ThreadSummary &at(int row) const;
    bool matches(const ThreadSummary &thread) const;
    void rebuild();
    /// The first row whose thread is at @p position or after it.
    int rowFrom(qsizetype position) const;
    void insertThreads(qsizetype first, qsizetype count);
    void removeThreads(qsizetype first, qsizetype count);
    void deleteThread(qsizetype position);
    void changeThread(qsizetype position);
    void showPositions(int row, const QList<qsizetype> &positions);
    void hideRows(int row, int count);
    void openStateChanged();

    HistoryController &m_history;
    const ThreadController &m_threads;
    Vocabulary m_words;
    QLocale m_locale;
    /// Hours and minutes, also where the short style has seconds.
    QString m_timeFormat;
    Clock m_clock;
    /// Positions in the controller's list.
    QList<qsizetype> m_visible;
    QString m_searchText;
    /// The trimmed text in lower case of the locale.
    QString m_needle;
    std::optional<QUuid> m_pendingDelete;
    QString m_deleteText;
    QString m_deleteTitle;
};

} // namespace quellora
