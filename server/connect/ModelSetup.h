#pragma once

#include "base/Stop.h"
#include "base/WorkerPool.h"
#include "config/Config.h"
#include "model/EventLoop.h"
#include "model/ModelCatalog.h"
#include "providers/UpstreamSettings.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quellora::server {

/// How a model did in the test.
struct ModelTest
{
    enum class Kind { None, Waiting, Running, SawPicture, DidNotSee, TextOnly, Failed };

    Kind kind = Kind::None;
    /// What the model or its provider said, in plain words.
    std::string words = {};
    std::chrono::milliseconds time{0};
};

/// A model that can be chosen.
struct SetupRow
{
    OfferedModel model;
    bool isChosen = false;
    ModelTest test = {};
};

/// The connection being set up, as its page shows it. Without the key.
struct SetupView
{
    enum class Phase { None, Listing, Choosing, Testing };

    /// Random; proves that a submission comes from the page of this connection.
    std::string id;
    Phase phase = Phase::None;
    std::string title;
    std::string baseUrl;
    std::string host;
    bool hasKey = false;
    /// Whether models of an earlier connection to that address are being changed.
    bool isChange = false;
    std::vector<SetupRow> rows;
    std::string filter;
    /// Why there is no list of models; empty when there is one.
    std::string listProblem;
    /// What to do before going on; empty when nothing.
    std::string hint;

    bool isVisible(const SetupRow &row) const;
};

/// What the owner entered on the page of the models.
struct SetupInput
{
    /// Rows with a tick, among the visible ones.
    std::vector<std::size_t> ticked;
    /// A model's name that is not in the list; may be empty.
    std::string name;
    std::string filter;
};

/// Sets up one connection at a time: asks for the list of models, tests the chosen ones and saves
/// them. The transfers run in threads of this object. Thread-safe; nothing here blocks but
/// waitWhileBusy() and save(), which writes a small file.
class ModelSetup
{
public:
    static constexpr std::size_t mostChosen = 24;
    static constexpr std::size_t mostConnections = 12;

    /// All must outlive this object. The transfers run on @p loops.
    ModelSetup(const Config &config, ModelOffers &offers, EventLoops &loops, WorkerPool &workers);
    ~ModelSetup();
    ModelSetup(const ModelSetup &) = delete;
    ModelSetup &operator=(const ModelSetup &) = delete;

    /// Starts over with a connection without models and asks for its list. @p old is the connection
    /// to change, if any. False when no provider of that name can be connected.
    bool begin(const Connection &fresh, const std::optional<Connection> &old);
    SetupView view() const;
    /// Waits at most @p limit for the running list or test.
    void waitWhileBusy(std::chrono::milliseconds limit) const;

    /// These have no effect when @p id is not the one of view(), because another page has started
    /// over since.
    void enter(const std::string &id, const SetupInput &input);
    void listAgain(const std::string &id);
    void test(const std::string &id);
    void stopTest(const std::string &id);
    void cancel(const std::string &id);
    /// Puts the chosen models in force. True when done; view() is empty then.
    bool save(const std::string &id);

    /// Ends the running transfers. Nothing can be started afterwards.
    void stop();
    /// Like stop(), and returns when nothing runs any more. Nobody may call anything else
    /// meanwhile. The event loops must still run, because a question that is being stopped waits
    /// for its own.
    void finish();

private:
    struct Job
    {
        StopSource stop;
        std::thread thread;
        bool isFinished = false;
    };
    using Step = std::function<void(SetupView &)>;

    bool isCurrent(const std::string &id) const;
    void
    start(std::function<void(const StopToken &, const std::function<void(const Step &)> &)> work);
    void endJob();
    void list();
    std::vector<ConnectedModel> chosen() const;

    const Config &m_config;
    ModelOffers &m_offers;
    EventLoops &m_loops;
    WorkerPool &m_workers;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    SetupView m_view;
    Connection m_connection;
    std::optional<Connection> m_old;
    const Connector *m_connector = nullptr;
    /// The last one may still count; the others have been told to stop.
    std::vector<std::unique_ptr<Job>> m_jobs;
    bool m_isStopped = false;
};

} // namespace quellora::server
