// Random sequences of the user's actions over a real store, compared after each one with a plain
// model in which every screenshot, note and turn knows for itself whether it is kept.

#include "KeepingFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QRandomGenerator>

#include <algorithm>

using namespace quellora;

namespace {

struct Item
{
    QString text;
    bool isKept = false;
    /// Of a turn: what went with its question.
    QString screenshot = {};
};

struct ModelThread
{
    QList<Item> screenshots;
    QList<Item> turns;
    QList<Item> notes;
    bool keepsTurns = false;
    bool keepsScreenshots = false;
    bool isFromDisk = false;
    /// The next question begins another thread.
    bool hasItsAnswer = false;

    static void keepAll(QList<Item> &items)
    {
        for (Item &item : items)
            item.isKept = true;
    }
    static void keep(QList<Item> &items, const QString &text)
    {
        for (Item &item : items)
            item.isKept = item.isKept || item.text == text;
    }
    void beginKeepingTurns(const QString &staged)
    {
        if (std::exchange(keepsTurns, true))
            return;
        keep(screenshots, staged);
        if (isFromDisk) {
            keepAll(screenshots);
            keepAll(turns);
        }
    }
    void addScreenshot(const QString &text)
    {
        screenshots.append({text, keepsTurns || keepsScreenshots});
    }
    void addNote(const QString &text)
    {
        keepsScreenshots = true;
        keepAll(screenshots);
        notes.append({text, true});
    }
    void addTurn(const QString &text, const QString &screenshot)
    {
        // Opened again in between, the thread may have lost it.
        const bool isThere = std::any_of(screenshots.cbegin(), screenshots.cend(),
                                         [&](const Item &item) { return item.text == screenshot; });
        if (!screenshot.isEmpty() && !isThere)
            addScreenshot(screenshot);
        turns.append({text, keepsTurns, screenshot});
        if (keepsTurns)
            keep(screenshots, screenshot);
    }
    void reload(bool keeps)
    {
        for (QList<Item> *items : {&screenshots, &turns, &notes})
            items->removeIf([](const Item &item) { return !item.isKept; });
        keepsTurns = keeps;
        keepsScreenshots = false;
        isFromDisk = true;
        hasItsAnswer = false;
    }

    /// In the form of KeepingFixture::text(); empty when nothing is kept.
    QString stored() const
    {
        QStringList words;
        qsizetype count = 0;
        for (const QList<Item> *items : {&turns, &screenshots, &notes}) {
            for (const Item &item : *items) {
                if (!item.isKept)
                    continue;
                ++count;
                words << (item.screenshot.isEmpty() ? item.text
                                                    : item.text + '<' + item.screenshot);
            }
            if (items != &notes)
                words << QStringLiteral("|");
        }
        return count > 0 ? words.join(' ') : QString();
    }
};

/// A question that waits for its answer.
struct Asked
{
    QUuid thread;
    QString prompt;
    QString screenshot;
    QPointer<FakeTransfer> transfer;
};

/// The program and the model of it, side by side.
class Pair
{
public:
    explicit Pair(quint32 seed) : m_random(seed) {}

    QStringList history;

    void act()
    {
        m_k.f.now = m_k.f.now.addSecs(1);
        using Action = void (Pair::*)();
        // Some come more often than others.
        static constexpr Action actions[] = {
            &Pair::captureOnly,  &Pair::captureOnly,   &Pair::captureAndSend, &Pair::captureAndSend,
            &Pair::send,         &Pair::send,          &Pair::send,           &Pair::answer,
            &Pair::answer,       &Pair::answer,        &Pair::answer,         &Pair::fail,
            &Pair::stop,         &Pair::addNote,       &Pair::deleteNote,     &Pair::deleteNote,
            &Pair::toggleSaving, &Pair::togglePerSend, &Pair::startNewThread, &Pair::open,
            &Pair::open,         &Pair::deleteThread,  &Pair::dropStaged};
        (this->*actions[m_random.bounded(int(std::size(actions)))])();
    }

    /// Where the program and the model differ; empty when they agree.
    QString difference()
    {
        QStringList problems;
        const auto ids = *m_k.disk.store.list();
        for (auto it = m_threads.cbegin(); it != m_threads.cend(); ++it) {
            const QString expected = it->stored();
            const QString found = m_k.stored(it.key());
            if (found != expected || ids.contains(it.key()) == expected.isEmpty())
                problems << "on disk: " + found + "\n  expected: " + expected;
        }
        for (const QUuid &id : ids) {
            if (!m_threads.contains(id))
                problems << "a thread that should not be there: " + m_k.stored(id);
            else
                checkNumbers(*m_k.disk.store.load(id), problems);
        }
        const auto &current = m_k.f.threads.currentSession();
        if (current) {
            checkNumbers(*current, problems);
            const ModelThread &model = m_threads[current->id];
            if (current->screenshots.size() != model.screenshots.size() ||
                current->turns.size() != model.turns.size() ||
                current->notes.size() != model.notes.size())
                problems << "in memory: " + m_k.text(*current);
        }
        if (m_k.f.threads.hasAttachedScreenshot() == m_staged.isEmpty())
            problems << "the attachment";
        return problems.join('\n');
    }

private:
    /// A number names the same picture as long as the program runs.
    void checkNumbers(const CaptureSession &session, QStringList &problems)
    {
        for (const auto &screenshot : session.screenshots) {
            const auto key = std::pair(session.id, screenshot.index);
            if (m_numbers.value(key, screenshot.imageData) != screenshot.imageData)
                problems << QStringLiteral("number %1 was given twice").arg(screenshot.index);
            m_numbers.insert(key, screenshot.imageData);
        }
    }

    QString label(const char *kind) { return QLatin1String(kind) + QString::number(++m_labels); }
    ModelThread &current() { return m_threads[m_k.current().id]; }
    bool hasCurrent() const { return m_k.f.threads.currentSession().has_value(); }

    void captureOnly()
    {
        const QString text = label("s");
        history << "capture " + text;
        m_k.capture(text.toLatin1());
        current().addScreenshot(text);
        m_staged = text;
    }

    void beforeQuestion()
    {
        if (!hasCurrent())
            return;
        ModelThread &thread = current();
        m_moves = std::exchange(thread.hasItsAnswer, false) && m_perSend;
        if (m_moves && !m_staged.isEmpty())
            thread.screenshots.removeIf([this](const Item &item) { return item.text == m_staged; });
    }
    void afterQuestion(const QString &prompt, const QString &screenshot)
    {
        m_asked.append({m_k.current().id, prompt, screenshot, m_k.f.transfer()});
        m_moves = false;
        m_staged.clear();
    }
    void captureAndSend()
    {
        const QString text = label("s");
        const QString prompt = label("q");
        history << "capture and send " + prompt + ' ' + text;
        m_staged.clear();
        beforeQuestion();
        m_k.f.defaults.setString("userPrompt", prompt);
        m_k.f.captureAndSend(text.toLatin1());
        if (m_saves)
            current().beginKeepingTurns({});
        current().addScreenshot(text);
        afterQuestion(prompt, text);
    }
    void send()
    {
        const QString prompt = label("q");
        history << "send " + prompt;
        beforeQuestion();
        m_k.f.orchestrator.sendPromptOnly(prompt);
        if (m_moves && !m_staged.isEmpty())
            current().addScreenshot(m_staged);
        if (m_saves)
            current().beginKeepingTurns(m_staged);
        afterQuestion(prompt, m_staged);
    }

    std::optional<Asked> takeAsked()
    {
        if (m_asked.isEmpty())
            return std::nullopt;
        return m_asked.takeAt(m_random.bounded(int(m_asked.size())));
    }
    void answer()
    {
        const auto asked = takeAsked();
        if (!asked)
            return;
        history << "answer " + asked->prompt;
        asked->transfer->answer("r");
        asked->transfer->finish(done());
        m_threads[asked->thread].addTurn(asked->prompt, asked->screenshot);
        const bool isLast = std::none_of(m_asked.cbegin(), m_asked.cend(), [&](const Asked &other) {
            return other.thread == asked->thread;
        });
        if (hasCurrent() && m_k.current().id == asked->thread && isLast && m_perSend)
            current().hasItsAnswer = true;
    }
    void fail()
    {
        if (const auto asked = takeAsked()) {
            history << "fail " + asked->prompt;
            asked->transfer->finish(failure(QueryError::Kind::HttpError, {}, 500));
        }
    }
    void stop()
    {
        history << "stop";
        m_k.f.orchestrator.stop();
        for (qsizetype i = m_asked.size() - 1; i >= 0; --i) {
            if (hasCurrent() && m_asked.at(i).thread == m_k.current().id) {
                m_asked.removeAt(i);
                return;
            }
        }
    }

    void addNote()
    {
        const QString text = label("n");
        history << "note " + text;
        m_k.f.orchestrator.addNote(text);
        current().addNote(text);
        m_staged.clear();
    }
    void deleteNote()
    {
        if (!hasCurrent() || current().notes.isEmpty())
            return;
        const int position = m_random.bounded(int(current().notes.size()));
        history << "delete " + current().notes.at(position).text;
        m_k.f.threads.removeNote(m_k.current().notes.at(position).id);
        current().notes.removeAt(position);
    }
    void toggleSaving()
    {
        m_saves = !m_saves;
        history << (m_saves ? "saving on" : "saving off");
        m_k.f.settings.setKeepAIHistoryEnabled(m_saves);
        if (m_saves && hasCurrent())
            current().beginKeepingTurns(m_staged);
    }
    void togglePerSend()
    {
        m_perSend = !m_perSend;
        history << (m_perSend ? "one thread per send" : "one thread for all");
        m_k.f.settings.setStartNewThreadPerSendEnabled(m_perSend);
    }
    void startNewThread()
    {
        history << "new thread";
        m_k.f.threads.startNewThread();
        m_staged.clear();
    }
    std::optional<QUuid> anyStored()
    {
        const auto ids = *m_k.disk.store.list();
        return ids.isEmpty() ? std::nullopt
                             : std::optional(ids.at(m_random.bounded(int(ids.size()))));
    }
    void open()
    {
        const auto id = anyStored();
        if (!id)
            return;
        history << "open " + m_k.stored(*id);
        const bool isCurrent = hasCurrent() && m_k.current().id == *id;
        m_k.open(*id);
        if (isCurrent) {
            current().hasItsAnswer = false;
        } else {
            m_threads[*id].reload(m_saves);
            m_staged.clear();
        }
    }
    void deleteThread()
    {
        const auto id = anyStored();
        if (!id)
            return;
        history << "delete thread " + m_k.stored(*id);
        m_k.f.orchestrator.discardAnswers(*id);
        if (m_k.f.threads.forget(*id))
            m_staged.clear();
        if (!m_k.disk.store.remove(*id))
            qFatal("The thread could not be removed");
        m_asked.removeIf([&](const Asked &asked) { return asked.thread == *id; });
        m_threads.remove(*id);
    }
    void dropStaged()
    {
        history << "drop the attachment";
        m_k.f.threads.clearStagedScreenshot();
        m_staged.clear();
    }

    KeepingFixture m_k;
    QRandomGenerator m_random;
    QMap<QUuid, ModelThread> m_threads;
    QList<Asked> m_asked;
    QString m_staged;
    QMap<std::pair<QUuid, qint64>, QByteArray> m_numbers;
    int m_labels = 0;
    bool m_saves = false;
    bool m_perSend = false;
    /// The question that is going out begins a thread of its own.
    bool m_moves = false;
};

} // namespace

class TestQueryKeepingModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void theDiskHoldsWhatTheModelKeeps()
    {
        // A long run: QUELLORA_MODEL_SEEDS=2000
        const int seeds = qEnvironmentVariableIntValue("QUELLORA_MODEL_SEEDS");
        for (quint32 seed = 1; seed <= (seeds ? quint32(seeds) : 40u); ++seed) {
            Pair pair(seed);
            for (int step = 0; step < 100; ++step) {
                pair.act();
                const QString difference = pair.difference();
                QVERIFY2(difference.isEmpty(),
                         qPrintable(QStringLiteral("seed %1:\n").arg(seed) +
                                    pair.history.join('\n') + "\n" + difference));
            }
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestQueryKeepingModel)
#include "test_query_keeping_model.moc"
