#include "http/AnswerAccounting.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/Services.h"

#include <algorithm>

namespace quellora::server {
namespace {

/// Tokens that are reserved at a time: about two kilobytes of text, but little of a small
/// allowance, so that answers side by side do not keep it from one another.
std::int64_t blockOf(const Account &account)
{
    constexpr std::int64_t most = 512;
    constexpr std::int64_t least = 32;
    constexpr std::int64_t share = 64;
    return account.tokenCap == 0 ? most : std::clamp(account.tokenCap / share, least, most);
}

} // namespace

tl::expected<AnswerAccounting, AnswerRefusal>
AnswerAccounting::begin(Services &services, Account account, std::string model,
                        std::size_t promptBytes, std::int64_t usedBefore)
{
    const std::int64_t estimate = estimatedTokens(promptBytes);
    auto answer = services.answers.begin(account.id, model, estimate, estimate + blockOf(account));
    if (!answer)
        return tl::make_unexpected(answer.error());
    return AnswerAccounting(services, std::move(account), std::move(model), promptBytes, usedBefore,
                            *std::move(answer));
}

AnswerAccounting::AnswerAccounting(Services &services, Account account, std::string model,
                                   std::size_t promptBytes, std::int64_t usedBefore,
                                   AdmittedAnswer answer)
    : m_services(&services)
    , m_account(std::move(account))
    , m_model(std::move(model))
    , m_promptBytes(promptBytes)
    , m_usedBefore(usedBefore)
    , m_id(std::move(answer.id))
    , m_reserved(std::make_shared<Reservation>())
{
    m_reserved->tokens = answer.reserved;
}

TokenCount AnswerAccounting::estimated(std::size_t answerBytes) const
{
    return TokenCount{estimatedTokens(m_promptBytes), estimatedTokens(answerBytes)};
}

std::size_t AnswerAccounting::coveredBytes() const
{
    const std::int64_t tokens = m_reserved->tokens - estimated(0).input;
    return static_cast<std::size_t>(tokens) * bytesPerToken;
}

bool AnswerAccounting::needsMore(std::size_t answerBytes) const
{
    // Asked for early, so that the answer need not wait.
    const std::int64_t margin = m_reserved->isFull ? blockOf(m_account) / 2 : 0;
    return estimated(answerBytes).total() + margin > m_reserved->tokens;
}

std::optional<AnswerRefusal> AnswerAccounting::cover(std::size_t leastBytes,
                                                     std::size_t answerBytes)
{
    const std::int64_t needed = estimated(leastBytes).total();
    const std::int64_t wanted = estimated(answerBytes).total() + blockOf(m_account);
    const auto reserved = m_services->answers.extend(m_id, needed, wanted);
    m_reserved->isFull = reserved && *reserved >= wanted;
    if (!reserved)
        return reserved.error();
    m_reserved->tokens = *reserved;
    return std::nullopt;
}

AnswerAccounting::Settlement AnswerAccounting::settle(const std::optional<TokenCount> &tokens,
                                                      std::size_t answerBytes)
{
    const TokenCount counted = tokens.value_or(estimated(answerBytes));
    m_services->answers.settleAtLast(m_id, counted, m_model);
    const auto amount = [](std::int64_t count) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
    };
    m_services->metrics.tokens.add({m_model, "input"}, amount(counted.input));
    m_services->metrics.tokens.add({m_model, "output"}, amount(counted.output));
    try {
        const Account account = m_services->accounts.find(m_account.id).value_or(m_account);
        return {counted, m_services->usage.figures(account)};
    } catch (const DatabaseError &problem) {
        Log::event(std::string("[AnswerAccounting] WARNING: The usage cannot be read: ") +
                   problem.what());
        return {counted, UsageLedger::figures(m_account, m_usedBefore + counted.total())};
    }
}

void AnswerAccounting::release()
{
    m_services->answers.release(m_id);
}

} // namespace quellora::server
