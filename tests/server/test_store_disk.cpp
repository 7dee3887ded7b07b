// The SQLite store when any single call that changes the disk fails, when all from one on fail, and
// when the power is cut after any of them.

#include "ServerKit.h"
#include "store/Accounts.h"
#include "store/Messages.h"
#include "support/FaultyDisk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quellora::server {

namespace {

using Fault = FaultyDisk::Fault;

/// The store in its folder.
struct Store
{
    explicit Store(const std::filesystem::path &folder)
    {
        Config config;
        config.dataFile = folder / "backend.sqlite";
        database = openDatabase(config);
        accounts.emplace(*database, hasher, clock);
        messages.emplace(*database, clock);
    }

    PasswordHasher hasher;
    SystemClock clock;
    std::unique_ptr<Database> database;
    std::optional<Accounts> accounts;
    std::optional<Messages> messages;
};

struct Operation
{
    std::function<void(Store &)> run;
    std::function<bool(Store &)> isDone;
    /// Whether there is nothing of it; the opposite of isDone unless it has parts.
    std::function<bool(Store &)> isUndone;
};

std::optional<std::int64_t> capOf(Store &store, const std::string &email)
{
    const auto account = store.accounts->findByEmail(email);
    return account ? std::optional(account->tokenCap) : std::nullopt;
}

bool shows(Store &store, const std::string &title)
{
    const auto all = store.messages->all();
    return std::any_of(all.begin(), all.end(),
                       [&](const StoredMessage &each) { return each.message.headerText == title; });
}

const std::string pageful(5'000, 'x');

std::vector<Operation> operations()
{
    const auto undone = [](auto isDone) { return [=](Store &store) { return !isDone(store); }; };
    const auto hasFirst = [](Store &store) { return capOf(store, "a@example.com").has_value(); };
    const auto isCapped = [](Store &store) { return capOf(store, "a@example.com") == 5; };
    const auto isAnnounced = [](Store &store) { return shows(store, "Maintenance"); };
    const auto hasPair = [](Store &store) {
        return capOf(store, "b@example.com") == 7 && shows(store, "Welcome");
    };
    return {
        {[](Store &store) { store.accounts->createInvited("a@example.com", "free", 1); }, hasFirst,
         undone(hasFirst)},
        {[](Store &store) { store.accounts->setTokenCap("a@example.com", 5); }, isCapped,
         undone(isCapped)},
        {[](Store &store) {
             AdminMessage message;
             message.headerText = "Maintenance";
             message.bodyMarkdown = pageful;
             store.messages->add(message);
         },
         isAnnounced, undone(isAnnounced)},
        {[](Store &store) {
             store.database->transaction([&] {
                 store.accounts->createInvited("b@example.com", "free", 7);
                 AdminMessage message;
                 message.headerText = "Welcome";
                 message.bodyMarkdown = pageful;
                 store.messages->add(message);
             });
         },
         hasPair,
         [](Store &store) { return !capOf(store, "b@example.com") && !shows(store, "Welcome"); }},
    };
}

enum class Outcome { Done, Open, NotTried };

/// Takes the operations as far as the store lets it.
std::vector<Outcome> run(
    const std::filesystem::path &folder, const std::function<void()> &afterEach = [] {})
{
    std::vector<Outcome> outcomes(operations().size(), Outcome::NotTried);
    std::unique_ptr<Store> store;
    try {
        store = std::make_unique<Store>(folder);
    } catch (const DatabaseError &) {
        return outcomes;
    }
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        try {
            operations()[i].run(*store);
            outcomes[i] = Outcome::Done;
        } catch (const DatabaseError &) {
            outcomes[i] = Outcome::Open;
        }
        afterEach();
    }
    return outcomes;
}

void verify(const std::filesystem::path &folder, const std::vector<Outcome> &outcomes,
            const std::string &where)
{
    SCOPED_TRACE(where);
    Store store(folder);
    store.database->query("PRAGMA integrity_check", {},
                          [](const Database::Row &row) { EXPECT_EQ(row.text(0), "ok"); });
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const Operation operation = operations()[i];
        const bool isDone = operation.isDone(store);
        // The second one needs the first.
        EXPECT_TRUE(isDone || operation.isUndone(store)) << "half of operation " << i;
        if (outcomes[i] == Outcome::Done && (i != 1 || outcomes[0] == Outcome::Done)) {
            EXPECT_TRUE(isDone) << "operation " << i << " is lost";
        }
        if (outcomes[i] == Outcome::NotTried) {
            EXPECT_FALSE(isDone) << "operation " << i;
        }
    }
}

class StoreOnDisk : public testing::Test
{
protected:
    std::string folder() const { return m_directory.path().string(); }

    /// Tries each call in turn. @return the number of calls
    int failEveryCall(const DiskImage &start, Fault fault, bool isLasting, int step)
    {
        for (int calls = 0;; calls += step) {
            start.writeTo(folder());
            std::vector<Outcome> outcomes;
            bool hasFailed = false;
            {
                FaultyDisk disk(folder());
                disk.fail(fault, calls, isLasting);
                outcomes = run(folder());
                hasFailed = disk.repair();
            }
            verify(folder(), outcomes, "call " + std::to_string(calls));
            if (!hasFailed || HasFailure()) {
                std::printf("calls tried: %d\n", calls / step);
                return calls;
            }
        }
    }

    /// A store without rows.
    DiskImage emptyStore()
    {
        DiskImage().writeTo(folder());
        const Store store(m_directory.path());
        return DiskImage::of(folder());
    }

private:
    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(StoreOnDisk, NothingIsLostByAFailingCall)
{
    const DiskImage start = emptyStore();
    for (const Fault fault : {Fault::NoSpace, Fault::InputOutput, Fault::Interrupted,
                              Fault::ReadOnly, Fault::ShortWrite}) {
        for (const bool isLasting : {false, true}) {
            // A call that is interrupted each time never returns.
            if (isLasting && fault == Fault::Interrupted)
                continue;
            SCOPED_TRACE("fault " + std::to_string(int(fault)) + (isLasting ? " lasting" : ""));
            EXPECT_GT(failEveryCall(start, fault, isLasting, 1), 15);
            if (HasFailure())
                return;
        }
    }
}

TEST_F(StoreOnDisk, AStoreThatCouldNotBeMadeIsMadeLater)
{
    EXPECT_GT(failEveryCall({}, Fault::NoSpace, true, 3), 20);
}

TEST_F(StoreOnDisk, NothingIsLostByAPowerCut)
{
    emptyStore().writeTo(folder());
    std::vector<std::size_t> ends;
    std::vector<std::vector<DiskImage>> images;
    {
        const FaultyDisk disk(folder());
        run(folder(), [&] { ends.push_back(disk.position()); });
        for (std::size_t i = 0; i <= disk.position(); ++i)
            images.push_back(disk.afterPowerCut(i));
    }
    int states = 0;
    for (std::size_t cut = 0; cut < images.size() && !HasFailure(); ++cut) {
        std::vector<Outcome> outcomes;
        for (std::size_t i = 0; i < ends.size(); ++i) {
            const bool isBegun = i == 0 || ends[i - 1] <= cut;
            outcomes.push_back(ends[i] <= cut ? Outcome::Done
                               : isBegun      ? Outcome::Open
                                              : Outcome::NotTried);
        }
        for (const DiskImage &image : std::set<DiskImage>(images[cut].begin(), images[cut].end())) {
            ++states;
            image.writeTo(folder());
            verify(folder(), outcomes, "power cut after " + std::to_string(cut) + " calls");
        }
    }
    EXPECT_GT(states, 20);
    std::printf("states tried: %d\n", states);
}

} // namespace quellora::server
