#pragma once

#include "store/Accounts.h"
#include "store/AnswerLedger.h"
#include "store/UsageLedger.h"

#include <tl/expected.hpp>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace quellora::server {

struct Services;

/// What one answer costs its account: reserved while it grows, counted when it ends. begin(),
/// cover(), settle() and release() work on the store and block, so they belong on a worker; the
/// others do not. Copies stand for the same answer.
class AnswerAccounting
{
public:
    /// What the account is charged, and its usage afterwards.
    struct Settlement
    {
        TokenCount tokens;
        UsageFigures figures;
    };

    /// Reserves the first tokens of an answer, or says why it may not run. @p usedBefore is what
    /// the account had used. Throws DatabaseError.
    static tl::expected<AnswerAccounting, AnswerRefusal> begin(Services &services, Account account,
                                                               std::string model,
                                                               std::size_t promptBytes,
                                                               std::int64_t usedBefore);

    /// How many bytes of answer are within what is reserved.
    std::size_t coveredBytes() const;
    /// Whether it is time to reserve more for it.
    bool needsMore(std::size_t answerBytes) const;
    /// Reserves more for an answer that has grown to @p answerBytes, or for a part that has at
    /// least @p leastBytes. Nothing, or why it may not grow even so far. Throws DatabaseError.
    std::optional<AnswerRefusal> cover(std::size_t leastBytes, std::size_t answerBytes);
    /// Counts the answer: @p tokens of the provider, else an estimate. To be called once. When the
    /// store fails it is counted later, and the figures are those of before with this answer.
    Settlement settle(const std::optional<TokenCount> &tokens, std::size_t answerBytes);
    /// Ends an answer that cost nothing; later, when the store fails.
    void release();

    /// The model that answers, when it is another one than was asked. Before settle() and not
    /// during it.
    void setModel(const std::string &model) { m_model = model; }

    const Account &account() const { return m_account; }
    const std::string &model() const { return m_model; }

private:
    /// What is reserved, read on the loop while a worker raises it.
    struct Reservation
    {
        std::atomic<std::int64_t> tokens;
        /// Whether the last request for more got all of it.
        std::atomic<bool> isFull{true};
    };

    AnswerAccounting(Services &services, Account account, std::string model,
                     std::size_t promptBytes, std::int64_t usedBefore, AdmittedAnswer answer);
    TokenCount estimated(std::size_t answerBytes) const;

    Services *m_services;
    Account m_account;
    std::string m_model;
    std::size_t m_promptBytes;
    std::int64_t m_usedBefore;
    std::string m_id;
    std::shared_ptr<Reservation> m_reserved;
};

} // namespace quellora::server
