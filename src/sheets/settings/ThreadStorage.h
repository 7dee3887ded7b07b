#pragma once

#include "base/Settings.h"
#include "history/HistoryController.h"
#include "platform/Vocabulary.h"

#include <QLocale>
#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

namespace quellora {

/// View model of the stored threads in the settings: the space they take, how long they are kept,
/// and deleting all of them. Whatever deletes threads asks first, with their number. Main thread
/// only; the disk is read on the library's worker.
class ThreadStorage : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(QString space READ space NOTIFY measured)
    Q_PROPERTY(bool hasThreads READ hasThreads NOTIFY measured)
    Q_PROPERTY(bool isLimited READ isLimited NOTIFY limitChanged)
    Q_PROPERTY(int days READ days NOTIFY limitChanged)
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)
    Q_PROPERTY(QString daysError READ daysError NOTIFY daysErrorChanged)
    Q_PROPERTY(bool isAsking READ isAsking NOTIFY questionChanged)
    Q_PROPERTY(QString questionTitle READ questionTitle NOTIFY questionChanged)
    Q_PROPERTY(QString questionText READ questionText NOTIFY questionChanged)

public:
    using Clock = std::function<QDateTime()>;

    static constexpr int defaultDays = 30;

    /// @param settings, library, history must outlive this object
    ThreadStorage(Settings &settings, ThreadLibrary &library, HistoryController &history,
                  Vocabulary vocabulary, const QLocale &locale = QLocale::system(),
                  Clock clock = QDateTime::currentDateTimeUtc, QObject *parent = nullptr);

    /// The threads are measured while the settings are open; closing them drops a question.
    void setOpen(bool isOpen);

    /// "312 threads, 1.2 GB"; without threads whose deletion can be undone.
    QString space() const;
    bool hasThreads() const;
    bool isLimited() const;
    /// How long threads are kept, or would be.
    int days() const { return m_days; }
    /// Why the last action failed; empty if it did not.
    QString problem() const { return m_problem; }
    /// Why the days were not accepted; empty if they were.
    QString daysError() const { return m_daysError; }
    bool isAsking() const { return m_question.has_value(); }
    QString questionTitle() const { return m_question ? m_question->title : QString(); }
    QString questionText() const { return m_question ? m_question->text : QString(); }

    // Called by the view.
    /// Asks first if threads would be deleted, as commitDays() does.
    Q_INVOKABLE void setLimited(bool isLimited);
    /// Takes a number of days over, or sets daysError().
    Q_INVOKABLE void commitDays(const QString &text);
    Q_INVOKABLE void deleteAll();
    Q_INVOKABLE void confirm();
    Q_INVOKABLE void cancel();

Q_SIGNALS:
    void measured();
    void limitChanged();
    void problemChanged();
    void daysErrorChanged();
    void questionChanged();

private:
    using Threads = QList<MeasuredThread>;
    struct Question
    {
        QString title;
        QString text;
        std::function<void()> confirmed;
    };

    /// Measures, then calls @p then unless another call has been made since.
    void measure(std::function<void(const Threads &)> then);
    Threads listed() const;
    QString sizeText(const Threads &threads) const;
    void showLimit();
    void propose(int days);
    void store(int days);
    void ask(const std::optional<Question> &question);
    void setProblem(const QString &problem);
    void setDaysError(const QString &error);

    Settings &m_settings;
    ThreadLibrary &m_library;
    HistoryController &m_history;
    Vocabulary m_vocabulary;
    QLocale m_locale;
    Clock m_clock;
    /// Nothing before the first measurement, or if it failed.
    std::optional<Threads> m_threads;
    bool m_isOpen = false;
    int m_lastMeasurement = 0;
    int m_days = defaultDays;
    QString m_problem;
    QString m_daysError;
    std::optional<Question> m_question;
};

} // namespace quellora
