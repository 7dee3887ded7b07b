#include "connect/ModelSetup.h"

#include "base/Log.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "connect/PlainWords.h"
#include "model/BlockingAnswer.h"
#include "model/ProviderWords.h"
#include "model/UpstreamTransfer.h"

#include <algorithm>

namespace quellora::server {
namespace {

using Steady = std::chrono::steady_clock;
using Phase = SetupView::Phase;
using TestKind = ModelTest::Kind;

constexpr std::size_t longestName = 200;
constexpr std::size_t longestFilter = 60;
/// A local server may have to load the model first.
constexpr std::chrono::seconds localTestTime(180);
constexpr std::chrono::seconds remoteTestTime(45);
/// Room for a model that thinks before it answers.
constexpr int testTokens = 1024;
constexpr std::size_t wantedAnswerBytes = 400;

const std::string question = "Which colour fills this picture? Answer with one word.";
/// 64 × 64 pixels of red.
constexpr std::string_view redPicture =
    "/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDABALDA4MChAODQ4SERATGCgaGBYWGDEjJR0oOjM9PDkzODdASFxOQERXRT"
    "c4UG1RV19iZ2hnPk1xeXBkeFxlZ2P/2wBDARESEhgVGC8aGi9jQjhCY2NjY2NjY2NjY2NjY2NjY2NjY2NjY2NjY2Nj"
    "Y2NjY2NjY2NjY2NjY2NjY2NjY2NjY2P/wAARCABAAEADASIAAhEBAxEB/8QAFQABAQAAAAAAAAAAAAAAAAAAAAX/xA"
    "AUEAEAAAAAAAAAAAAAAAAAAAAA/8QAFgEBAQEAAAAAAAAAAAAAAAAAAAUG/8QAFBEBAAAAAAAAAAAAAAAAAAAAAP/a"
    "AAwDAQACEQMRAD8AgAJragAAAAAAAAAAAAAAAAAAAAAAAAAAAAAP/9k=";

struct Reply
{
    AnswerOutcome outcome;
    std::string text;
    std::chrono::milliseconds time{0};
};

Reply ask(const AnswerSource &answer, const std::string &model, const std::string &jpeg,
          const StopToken &stop, const AnswerPlace &place)
{
    Reply reply;
    const auto begin = Steady::now();
    reply.outcome = waitForAnswer(
        answer, ModelRequest{question, jpeg, model},
        [&reply](std::string_view text) {
            reply.text += text;
            return reply.text.size() < wantedAnswerBytes;
        },
        stop, place);
    reply.time = std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now() - begin);
    // Enough text ends the transfer early.
    if (reply.outcome.kind == AnswerOutcome::Kind::Cancelled && !stop.stopRequested())
        reply.outcome.kind = AnswerOutcome::Kind::Complete;
    if (reply.outcome.kind == AnswerOutcome::Kind::Cancelled && stop.expired())
        reply.outcome = AnswerOutcome::failed("", {UpstreamProblem::Kind::Silent});
    return reply;
}

bool isAnswer(const Reply &reply)
{
    return reply.outcome.kind == AnswerOutcome::Kind::Complete && !trimmed(reply.text).empty();
}

/// Whether leaving the picture out might help.
bool mayDislikePicture(const AnswerOutcome &outcome)
{
    const int status = outcome.problem.status;
    return outcome.kind == AnswerOutcome::Kind::Failed &&
           outcome.problem.kind == UpstreamProblem::Kind::Refused && status != 401 &&
           status != 402 && status != 403 && status != 404;
}

/// What the server is called in messages: a local one by its title, others by the host.
std::string nameOf(const Connection &connection)
{
    const std::string host = hostOfUrl(connection.baseUrl);
    return isLoopbackHost(host) ? connection.title : host;
}

ModelTest tested(const AnswerSource &answer, const Connection &connection, const std::string &model,
                 const StopToken &stop, const AnswerPlace &place)
{
    const std::string host = hostOfUrl(connection.baseUrl);
    const auto limit = isLoopbackHost(host) ? std::chrono::seconds(localTestTime) : remoteTestTime;
    const Reply reply = ask(answer, model, base64Decoded(redPicture).value_or(""),
                            stop.before(Steady::now() + limit), place);
    const auto words = [&](const AnswerOutcome &outcome) {
        return plainWords(outcome.problem, Asked::Answer, nameOf(connection), connection.apiKey);
    };
    if (isAnswer(reply)) {
        const bool saw = lowered(reply.text).find("red") != std::string::npos;
        return {saw ? TestKind::SawPicture : TestKind::DidNotSee, displayText(reply.text, 120),
                reply.time};
    }
    if (reply.outcome.kind == AnswerOutcome::Kind::Complete)
        return {TestKind::Failed, nameOf(connection) + " ended its answer without any text.",
                reply.time};
    if (mayDislikePicture(reply.outcome)) {
        const Reply plain = ask(answer, model, "", stop.before(Steady::now() + limit), place);
        if (isAnswer(plain))
            return {TestKind::TextOnly, words(reply.outcome), plain.time};
    }
    return {TestKind::Failed, words(reply.outcome), reply.time};
}

} // namespace

bool SetupView::isVisible(const SetupRow &row) const
{
    return row.isChosen || filter.empty() ||
           lowered(row.model.name + ' ' + row.model.title).find(lowered(filter)) !=
               std::string::npos;
}

ModelSetup::ModelSetup(const Config &config, ModelOffers &offers, EventLoops &loops,
                       WorkerPool &workers)
    : m_config(config), m_offers(offers), m_loops(loops), m_workers(workers)
{}

ModelSetup::~ModelSetup()
{
    finish();
}

void ModelSetup::finish()
{
    stop();
    for (const auto &job : m_jobs)
        job->thread.join();
    m_jobs.clear();
}

void ModelSetup::stop()
{
    const std::lock_guard lock(m_mutex);
    m_isStopped = true;
    endJob();
}

void ModelSetup::endJob()
{
    for (const auto &job : m_jobs)
        job->stop.requestStop();
    // Threads whose work is done end at once.
    std::erase_if(m_jobs, [](const auto &job) {
        if (job->isFinished)
            job->thread.join();
        return job->isFinished;
    });
    m_changed.notify_all();
}

void ModelSetup::start(
    std::function<void(const StopToken &, const std::function<void(const Step &)> &)> work)
{
    endJob();
    if (m_isStopped)
        return;
    m_jobs.push_back(std::make_unique<Job>());
    Job &job = *m_jobs.back();
    job.thread = std::thread([this, &job, work = std::move(work)] {
        work(job.stop.token(), [this, &job](const Step &step) {
            const std::lock_guard lock(m_mutex);
            if (!job.stop.stopRequested())
                step(m_view);
            m_changed.notify_all();
        });
        const std::lock_guard lock(m_mutex);
        job.isFinished = true;
    });
}

bool ModelSetup::isCurrent(const std::string &id) const
{
    return m_view.phase != Phase::None && m_view.id == id;
}

bool ModelSetup::begin(const Connection &fresh, const std::optional<Connection> &old)
{
    const std::lock_guard lock(m_mutex);
    const auto provider =
        std::find_if(m_config.providers.begin(), m_config.providers.end(),
                     [&](const ConfiguredProvider &known) { return known.name == fresh.provider; });
    if (provider == m_config.providers.end() || !provider->connector)
        return false;
    m_connector = &*provider->connector;
    m_connection = fresh;
    m_old = old;
    m_view = SetupView();
    m_view.id = randomToken();
    m_view.title = fresh.title;
    m_view.baseUrl = fresh.baseUrl;
    m_view.host = hostOfUrl(fresh.baseUrl);
    m_view.hasKey = !fresh.apiKey.empty();
    m_view.isChange = old.has_value();
    for (const ConnectedModel &model : fresh.models)
        m_view.rows.push_back({{model.name, model.title}, true});
    list();
    return true;
}

void ModelSetup::list()
{
    m_view.phase = Phase::Listing;
    m_view.listProblem.clear();
    m_view.hint.clear();
    start([connector = m_connector, connection = m_connection,
           &loop = m_loops.next()](const StopToken &stop, const auto &update) {
        UpstreamSettings settings;
        settings.baseUrl = connection.baseUrl;
        settings.apiKey = connection.apiKey;
        auto models = connector->listModels(loop, settings, DocumentLimits(), stop);
        update([&](SetupView &view) {
            view.phase = Phase::Choosing;
            if (!models) {
                Log::event("[ModelSetup] No list of models from " + view.host);
                view.listProblem = plainWords(models.error(), Asked::ModelList, nameOf(connection),
                                              connection.apiKey);
                return;
            }
            std::vector<SetupRow> rows;
            for (OfferedModel &model : *models) {
                const bool isChosen =
                    std::any_of(view.rows.begin(), view.rows.end(), [&](const SetupRow &row) {
                        return row.isChosen && row.model.name == model.name;
                    });
                rows.push_back({std::move(model), isChosen || models->size() == 1});
            }
            // What was chosen before stays a choice, even when the provider lists it no longer.
            for (SetupRow &row : view.rows) {
                const bool isListed =
                    std::any_of(rows.begin(), rows.end(), [&](const SetupRow &listed) {
                        return listed.model.name == row.model.name;
                    });
                if (row.isChosen && !isListed)
                    rows.push_back(std::move(row));
            }
            view.rows = std::move(rows);
        });
    });
}

SetupView ModelSetup::view() const
{
    const std::lock_guard lock(m_mutex);
    return m_view;
}

void ModelSetup::waitWhileBusy(std::chrono::milliseconds limit) const
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, limit, [this] {
        return m_isStopped || (m_view.phase != Phase::Listing && m_view.phase != Phase::Testing);
    });
}

void ModelSetup::enter(const std::string &id, const SetupInput &input)
{
    const std::lock_guard lock(m_mutex);
    if (!isCurrent(id) || m_view.phase != Phase::Choosing)
        return;
    const SetupView before = m_view;
    for (std::size_t i = 0; i < m_view.rows.size(); ++i) {
        if (before.isVisible(before.rows[i]))
            m_view.rows[i].isChosen =
                std::find(input.ticked.begin(), input.ticked.end(), i) != input.ticked.end();
    }
    m_view.filter = displayText(input.filter, longestFilter);
    m_view.hint.clear();
    const std::string name = trimmed(input.name);
    if (name.empty())
        return;
    if (name != displayText(name, longestName)) {
        m_view.hint = "That is no name of a model.";
        return;
    }
    const auto known = std::find_if(m_view.rows.begin(), m_view.rows.end(),
                                    [&](const SetupRow &row) { return row.model.name == name; });
    if (known != m_view.rows.end())
        known->isChosen = true;
    else
        m_view.rows.push_back({{name, name}, true});
}

void ModelSetup::listAgain(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    if (isCurrent(id))
        list();
}

std::vector<ConnectedModel> ModelSetup::chosen() const
{
    std::vector<ConnectedModel> models;
    for (const SetupRow &row : m_view.rows) {
        if (row.isChosen)
            models.push_back({row.model.name, row.model.title});
    }
    return models;
}

void ModelSetup::test(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    if (!isCurrent(id) || m_view.phase != Phase::Choosing)
        return;
    const std::size_t count = chosen().size();
    if (count == 0 || count > mostChosen) {
        m_view.hint = count == 0 ? "Choose a model first."
                                 : "Choose at most " + std::to_string(mostChosen) + " models.";
        return;
    }
    m_view.phase = Phase::Testing;
    std::vector<std::pair<std::size_t, std::string>> models;
    for (std::size_t i = 0; i < m_view.rows.size(); ++i) {
        m_view.rows[i].test = {};
        if (m_view.rows[i].isChosen) {
            m_view.rows[i].test.kind = TestKind::Waiting;
            models.emplace_back(i, m_view.rows[i].model.name);
        }
    }
    UpstreamSettings settings;
    settings.baseUrl = m_connection.baseUrl;
    settings.apiKey = m_connection.apiKey;
    settings.maxOutputTokens = testTokens;
    TimingSettings timing = m_config.timing;
    timing.stall = localTestTime;
    // One after the other: a local server would have to hold them all in memory at once.
    start([models, connection = m_connection, answer = m_connector->makeAnswer(settings, timing),
           place = AnswerPlace{m_loops.next(), m_workers}](const StopToken &stop,
                                                           const auto &update) {
        for (const auto &[row, name] : models) {
            update([at = row](SetupView &view) { view.rows[at].test.kind = TestKind::Running; });
            const ModelTest result = tested(answer, connection, name, stop, place);
            update([&, at = row](SetupView &view) { view.rows[at].test = result; });
        }
        update([](SetupView &view) { view.phase = Phase::Choosing; });
    });
}

void ModelSetup::stopTest(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    if (!isCurrent(id) || m_view.phase != Phase::Testing)
        return;
    m_view.phase = Phase::Choosing;
    for (SetupRow &row : m_view.rows) {
        if (row.test.kind == TestKind::Waiting || row.test.kind == TestKind::Running)
            row.test = {};
    }
    endJob();
}

void ModelSetup::cancel(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    if (!isCurrent(id))
        return;
    m_view = SetupView();
    m_connection = Connection();
    m_old.reset();
    endJob();
}

bool ModelSetup::save(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    if (!isCurrent(id) || m_view.phase != Phase::Choosing)
        return false;
    // The first model is the one that answers until the user picks another.
    std::stable_partition(m_view.rows.begin(), m_view.rows.end(), [](const SetupRow &row) {
        return row.test.kind == TestKind::SawPicture;
    });
    Connection connection = m_connection;
    connection.models = chosen();
    if (connection.models.empty() || connection.models.size() > mostChosen) {
        m_view.hint = connection.models.empty()
                          ? "Choose a model first."
                          : "Choose at most " + std::to_string(mostChosen) + " models.";
        return false;
    }
    std::vector<Connection> all = m_offers.connections();
    const auto isReplaced = [&](const Connection &other) {
        return (m_old && other.provider == m_old->provider && other.baseUrl == m_old->baseUrl) ||
               (other.provider == connection.provider && other.baseUrl == connection.baseUrl);
    };
    if (const auto place = std::find_if(all.begin(), all.end(), isReplaced); place != all.end())
        *place = connection;
    else
        all.push_back(connection);
    if (all.size() > mostConnections) {
        m_view.hint = "There are " + std::to_string(mostConnections) +
                      " connections already. Disconnect one first.";
        return false;
    }
    if (const auto why = m_offers.replace(std::move(all))) {
        m_view.hint = "Not saved: " + *why;
        return false;
    }
    Log::event("[ModelSetup] Connected " + std::to_string(connection.models.size()) +
               " models of " + m_view.host);
    m_view = SetupView();
    m_connection = Connection();
    m_old.reset();
    return true;
}

} // namespace quellora::server
