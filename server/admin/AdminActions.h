#pragma once

#include "admin/AdminStore.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace quellora::server {

/// Names of the stored settings that administrators change.
namespace settingNames {
constexpr const char *defaultPrompt = "default_prompt";
constexpr const char *defaultModel = "default_model";
/// Ids of the models that are not offered, one per line.
constexpr const char *hiddenModels = "hidden_models";
/// "true" or "false".
constexpr const char *requestLogs = "request_logs";
} // namespace settingNames

/// What administrators do to accounts, messages and settings. Each action and its entry in the
/// audit trail are one transaction. Errors are sentences for the administrator. Thread-safe.
class AdminActions
{
public:
    template <typename Value>
    using Result = tl::expected<Value, std::string>;
    using Done = Result<void>;

    static constexpr std::int64_t mostTokens = 1000000000000LL;
    static constexpr std::size_t longestName = 60;
    static constexpr std::size_t shortestPassword = 8;
    static constexpr std::size_t longestPassword = 1024;

    /// @p actor is the administrator's name in the trail, or "command line".
    AdminActions(AdminStore &store, std::string actor) : m_store(store), m_actor(std::move(actor))
    {}

    /// An account with a password, for the person @p email. The password has been checked.
    Result<Account> create(const std::string &email, const std::string &password,
                           const std::string &plan, std::int64_t tokenCap) const;
    /// A new password, which has been checked; ends all sessions.
    Done setPassword(std::int64_t id, const std::string &password) const;
    /// An invited account and the token of its link.
    struct Invited
    {
        Account account;
        std::string token;
    };
    Result<Invited> invite(const std::string &email, const std::string &plan,
                           std::int64_t tokenCap) const;
    /// Another link for an account that has no password yet.
    Result<Invited> inviteAgain(std::int64_t id) const;
    Done setSuspended(std::int64_t id, bool suspended) const;
    Done setTokenCap(std::int64_t id, std::int64_t tokenCap) const;
    Done setPlan(std::int64_t id, const std::string &plan) const;
    /// Ends all sessions and returns their number.
    Result<int> signOut(std::int64_t id) const;
    /// Deletes the account with everything of that person. The trail keeps the pseudonym.
    Done remove(std::int64_t id) const;
    /// Everything stored of that person, as JSON without secrets.
    Result<std::string> exportPerson(std::int64_t id) const;

    /// Shows a message to an account, or to all, and returns its id.
    Result<std::string> sendMessage(AdminMessage message, std::optional<std::int64_t> id) const;
    Done withdrawMessage(const std::string &messageId) const;
    /// Nothing leaves the setting to the configuration file.
    Done set(const std::string &setting, const std::optional<std::string> &value) const;
    /// The content of an uploaded log.
    Result<std::string> readLog(std::int64_t logId) const;

private:
    Result<Account> account(std::int64_t id) const;
    /// Runs @p change on the account and records it.
    Done change(std::int64_t id, const std::string &action, const std::string &detail,
                const std::function<void(const Account &)> &work) const;

    AdminStore &m_store;
    std::string m_actor;
};

/// What is wrong with a message; empty when nothing is.
std::string messageProblem(const AdminMessage &message);

} // namespace quellora::server
