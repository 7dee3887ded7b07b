#pragma once

#include "base/Metrics.h"
#include "store/Accounts.h"
#include "store/UsageLedger.h"

#include <cstddef>
#include <optional>
#include <string>

namespace quellora::server {

struct Services;

/// What one answer costs its account. The constructor and settle() work on the store and block, so
/// they belong on a worker; isOverdrawn() does not.
class AnswerAccounting
{
public:
    /// What the account is charged, and its usage afterwards.
    struct Settlement
    {
        TokenCount tokens;
        UsageFigures figures;
    };

    AnswerAccounting(Services &services, Account account, std::string model,
                     std::size_t promptBytes);

    /// Whether an answer that has grown to @p answerBytes exceeds what is tolerated.
    bool isOverdrawn(std::size_t answerBytes) const;
    /// Counts the answer: @p tokens of the provider, else an estimate. To be called once; an answer
    /// that never came to a text is not counted by not calling it. Throws DatabaseError.
    Settlement settle(const std::optional<TokenCount> &tokens, std::size_t answerBytes);

    /// The model that answers, when it is another one than was asked. Before settle() and not
    /// during it.
    void setModel(const std::string &model) { m_model = model; }

    const Account &account() const { return m_account; }
    const std::string &model() const { return m_model; }

private:
    TokenCount estimated(std::size_t answerBytes) const;

    Services &m_services;
    Account m_account;
    std::string m_model;
    std::size_t m_promptBytes;
    std::int64_t m_usedBefore;
};

} // namespace quellora::server
