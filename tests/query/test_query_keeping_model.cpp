// Model-based test: applies random user actions to the query flow with a real store and to a simple
// model that tracks whether each screenshot, note and turn is saved, and compares both after each.

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
    bool isSaved = false;
    /// Of a turn: the screenshot sent with it.
    QString screenshot = {};
};

struct ModelThread
{
    QList<Item> screenshots;
    QList<Item> turns;
    QList<Item> notes;
    bool savesTurns = false;
    bool savesScreenshots = false;
    bool isLoadedFromDisk = false;
    /// The next send starts a new thread.
    bool endsAtNextSend = false;

    static void saveAll(QList<Item> &items)
    {
        for (Item &item : items)
            item.isSaved = true;
    }
    static void save(QList<Item> &items, const QString &text)
    {
        for (Item &item : items)
            item.isSaved = item.isSaved || item.text == text;
    }
    void startSavingTurns(const QString &staged)
    {
        if (std::exchange(savesTurns, true))
            return;
        save(screenshots, staged);
        if (isLoadedFromDisk) {
            saveAll(screenshots);
            saveAll(turns);
        }
    }
    void addScreenshot(const QString &text)
    {
        screenshots.append({text, savesTurns || savesScreenshots});
    }
    void addNote(const QString &text)
    {
        savesScreenshots = true;
        saveAll(screenshots);
        notes.append({text, true});
    }
    void addTurn(const QString &text, const QString &screenshot)
    {
        // Reopening the thread in the meantime may have dropped it.
        const bool isPresent =
            std::any_of(screenshots.cbegin(), screenshots.cend(),
                        [&](const Item &item) { return item.text == screenshot; });
        if (!screenshot.isEmpty() && !isPresent)
            addScreenshot(screenshot);
        turns.append({text, savesTurns, screenshot});
        if (savesTurns)
            save(screenshots, screenshot);
    }
    void reload(bool saves)
    {
        for (QList<Item> *items : {&screenshots, &turns, &notes})
            items->removeIf([](const Item &item) { return !item.isSaved; });
        savesTurns = saves;
        savesScreenshots = false;
        isLoadedFromDisk = true;
        endsAtNextSend = false;
    }

    /// The saved part in the format of KeepingFixture::text(); empty if nothing is saved.
    QString stored() const
    {
        QStringList words;
        qsizetype count = 0;
        for (const QList<Item> *items : {&turns, &screenshots, &notes}) {
            for (const Item &item : *items) {
                if (!item.isSaved)
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

/// A query without an answer yet.
struct PendingQuery
{
    QUuid thread;
    QString prompt;
    QString screenshot;
    QPointer<FakeTransfer> transfer;
};

/// Applies the same actions to the program and to the model.
class Simulation
{
public:
    explicit Simulation(quint32 seed) : m_random(seed) {}

    QStringList actions;

    void performRandomAction()
    {
        m_fixture.f.now = m_fixture.f.now.addSecs(1);
        using Action = void (Simulation::*)();
        // Repeated entries are more frequent.
        static constexpr Action actionTable[] = {&Simulation::captureOnly,
                                                 &Simulation::captureOnly,
                                                 &Simulation::captureAndSend,
                                                 &Simulation::captureAndSend,
                                                 &Simulation::send,
                                                 &Simulation::send,
                                                 &Simulation::send,
                                                 &Simulation::answer,
                                                 &Simulation::answer,
                                                 &Simulation::answer,
                                                 &Simulation::answer,
                                                 &Simulation::fail,
                                                 &Simulation::stop,
                                                 &Simulation::addNote,
                                                 &Simulation::deleteNote,
                                                 &Simulation::deleteNote,
                                                 &Simulation::toggleHistory,
                                                 &Simulation::toggleThreadPerSend,
                                                 &Simulation::startNewThread,
                                                 &Simulation::open,
                                                 &Simulation::open,
                                                 &Simulation::deleteThread,
                                                 &Simulation::removeAttachment};
        (this->*actionTable[m_random.bounded(int(std::size(actionTable)))])();
    }

    /// Describes how the program and the model differ; empty if they agree.
    QString difference()
    {
        QStringList problems;
        const auto ids = *m_fixture.disk.store.list();
        for (auto it = m_threads.cbegin(); it != m_threads.cend(); ++it) {
            const QString expected = it->stored();
            const QString found = m_fixture.stored(it.key());
            if (found != expected || ids.contains(it.key()) == expected.isEmpty())
                problems << "on disk: " + found + "\n  expected: " + expected;
        }
        for (const QUuid &id : ids) {
            if (!m_threads.contains(id))
                problems << "unexpected thread: " + m_fixture.stored(id);
            else
                checkIndexes(*m_fixture.disk.store.load(id), problems);
        }
        const auto &current = m_fixture.f.threads.currentSession();
        if (current) {
            checkIndexes(*current, problems);
            const ModelThread &model = m_threads[current->id];
            if (current->screenshots.size() != model.screenshots.size() ||
                current->turns.size() != model.turns.size() ||
                current->notes.size() != model.notes.size())
                problems << "in memory: " + KeepingFixture::text(*current);
        }
        if (m_fixture.f.threads.hasAttachedScreenshot() == m_staged.isEmpty())
            problems << "attachment";
        return problems.join('\n');
    }

private:
    /// Verifies that an index always refers to the same image.
    void checkIndexes(const CaptureSession &session, QStringList &problems)
    {
        for (const auto &screenshot : session.screenshots) {
            const auto key = std::pair(session.id, screenshot.index);
            if (m_imagesByIndex.value(key, screenshot.imageData) != screenshot.imageData)
                problems << QStringLiteral("index %1 was reused").arg(screenshot.index);
            m_imagesByIndex.insert(key, screenshot.imageData);
        }
    }

    QString label(const char *kind) { return QLatin1String(kind) + QString::number(++m_labels); }
    ModelThread &current() { return m_threads[m_fixture.current().id]; }
    bool hasCurrent() const { return m_fixture.f.threads.currentSession().has_value(); }

    void captureOnly()
    {
        const QString text = label("s");
        actions << "capture " + text;
        m_fixture.capture(text.toLatin1());
        current().addScreenshot(text);
        m_staged = text;
    }

    void beforeSend()
    {
        if (!hasCurrent())
            return;
        ModelThread &thread = current();
        m_startsNewThread = std::exchange(thread.endsAtNextSend, false) && m_isThreadPerSendEnabled;
        if (m_startsNewThread && !m_staged.isEmpty())
            thread.screenshots.removeIf([this](const Item &item) { return item.text == m_staged; });
    }
    void afterSend(const QString &prompt, const QString &screenshot)
    {
        m_pendingQueries.append(
            {m_fixture.current().id, prompt, screenshot, m_fixture.f.transfer()});
        m_startsNewThread = false;
        m_staged.clear();
    }
    void captureAndSend()
    {
        const QString text = label("s");
        const QString prompt = label("q");
        actions << "capture and send " + prompt + ' ' + text;
        m_staged.clear();
        beforeSend();
        m_fixture.f.defaults.setString("userPrompt", prompt);
        m_fixture.f.captureAndSend(text.toLatin1());
        if (m_isHistoryEnabled)
            current().startSavingTurns({});
        current().addScreenshot(text);
        afterSend(prompt, text);
    }
    void send()
    {
        const QString prompt = label("q");
        actions << "send " + prompt;
        beforeSend();
        m_fixture.f.orchestrator.sendPromptOnly(prompt);
        if (m_startsNewThread && !m_staged.isEmpty())
            current().addScreenshot(m_staged);
        if (m_isHistoryEnabled)
            current().startSavingTurns(m_staged);
        afterSend(prompt, m_staged);
    }

    std::optional<PendingQuery> takePendingQuery()
    {
        if (m_pendingQueries.isEmpty())
            return std::nullopt;
        return m_pendingQueries.takeAt(m_random.bounded(int(m_pendingQueries.size())));
    }
    void answer()
    {
        const auto query = takePendingQuery();
        if (!query)
            return;
        actions << "answer " + query->prompt;
        query->transfer->answer("r");
        query->transfer->finish(done());
        m_threads[query->thread].addTurn(query->prompt, query->screenshot);
        const bool isLast =
            std::none_of(m_pendingQueries.cbegin(), m_pendingQueries.cend(),
                         [&](const PendingQuery &other) { return other.thread == query->thread; });
        if (hasCurrent() && m_fixture.current().id == query->thread && isLast &&
            m_isThreadPerSendEnabled)
            current().endsAtNextSend = true;
    }
    void fail()
    {
        if (const auto query = takePendingQuery()) {
            actions << "fail " + query->prompt;
            query->transfer->finish(failure(QueryError::Kind::HttpError, {}, 500));
        }
    }
    void stop()
    {
        actions << "stop";
        m_fixture.f.orchestrator.stop();
        for (qsizetype i = m_pendingQueries.size() - 1; i >= 0; --i) {
            if (hasCurrent() && m_pendingQueries.at(i).thread == m_fixture.current().id) {
                m_pendingQueries.removeAt(i);
                return;
            }
        }
    }

    void addNote()
    {
        const QString text = label("n");
        actions << "note " + text;
        m_fixture.f.orchestrator.addNote(text);
        current().addNote(text);
        m_staged.clear();
    }
    void deleteNote()
    {
        if (!hasCurrent() || current().notes.isEmpty())
            return;
        const int position = m_random.bounded(int(current().notes.size()));
        actions << "delete " + current().notes.at(position).text;
        m_fixture.f.threads.removeNote(m_fixture.current().notes.at(position).id);
        current().notes.removeAt(position);
    }
    void toggleHistory()
    {
        m_isHistoryEnabled = !m_isHistoryEnabled;
        actions << (m_isHistoryEnabled ? "saving on" : "saving off");
        m_fixture.f.settings.setKeepAIHistoryEnabled(m_isHistoryEnabled);
        if (m_isHistoryEnabled && hasCurrent())
            current().startSavingTurns(m_staged);
    }
    void toggleThreadPerSend()
    {
        m_isThreadPerSendEnabled = !m_isThreadPerSendEnabled;
        actions << (m_isThreadPerSendEnabled ? "one thread per send" : "one thread for all");
        m_fixture.f.settings.setStartNewThreadPerSendEnabled(m_isThreadPerSendEnabled);
    }
    void startNewThread()
    {
        actions << "new thread";
        m_fixture.f.threads.startNewThread();
        m_staged.clear();
    }
    std::optional<QUuid> randomStoredThread()
    {
        const auto ids = *m_fixture.disk.store.list();
        return ids.isEmpty() ? std::nullopt
                             : std::optional(ids.at(m_random.bounded(int(ids.size()))));
    }
    void open()
    {
        const auto id = randomStoredThread();
        if (!id)
            return;
        actions << "open " + m_fixture.stored(*id);
        const bool isCurrent = hasCurrent() && m_fixture.current().id == *id;
        m_fixture.open(*id);
        if (isCurrent) {
            current().endsAtNextSend = false;
        } else {
            m_threads[*id].reload(m_isHistoryEnabled);
            m_staged.clear();
        }
    }
    void deleteThread()
    {
        const auto id = randomStoredThread();
        if (!id)
            return;
        actions << "delete thread " + m_fixture.stored(*id);
        if (m_fixture.f.threads.setAside(*id))
            m_staged.clear();
        m_fixture.f.orchestrator.discardAnswers({*id});
        m_fixture.f.threads.forget(*id);
        if (!m_fixture.disk.store.remove(*id))
            qFatal("The thread could not be removed");
        m_pendingQueries.removeIf([&](const PendingQuery &query) { return query.thread == *id; });
        m_threads.remove(*id);
    }
    void removeAttachment()
    {
        actions << "drop the attachment";
        m_fixture.f.threads.clearStagedScreenshot();
        m_staged.clear();
    }

    KeepingFixture m_fixture;
    QRandomGenerator m_random;
    QMap<QUuid, ModelThread> m_threads;
    QList<PendingQuery> m_pendingQueries;
    QString m_staged;
    QMap<std::pair<QUuid, qint64>, QByteArray> m_imagesByIndex;
    int m_labels = 0;
    bool m_isHistoryEnabled = false;
    bool m_isThreadPerSendEnabled = false;
    /// The query being sent starts a new thread.
    bool m_startsNewThread = false;
};

} // namespace

class TestQueryKeepingModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void storedThreadsMatchModel()
    {
        // For a longer run, set QUELLORA_MODEL_SEEDS, for example to 2000.
        const int seeds = qEnvironmentVariableIntValue("QUELLORA_MODEL_SEEDS");
        for (quint32 seed = 1; seed <= (seeds ? quint32(seeds) : 40u); ++seed) {
            Simulation simulation(seed);
            for (int step = 0; step < 100; ++step) {
                simulation.performRandomAction();
                const QString difference = simulation.difference();
                QVERIFY2(difference.isEmpty(),
                         qPrintable(QStringLiteral("seed %1:\n").arg(seed) +
                                    simulation.actions.join('\n') + "\n" + difference));
            }
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestQueryKeepingModel)
#include "test_query_keeping_model.moc"
