#include "http/AnswerAccounting.h"

#include "base/Text.h"
#include "http/Services.h"

#include <algorithm>

namespace quellora::server {

AnswerAccounting::AnswerAccounting(Services &services, Account account, std::string model,
                                   std::size_t promptBytes)
    : m_services(services)
    , m_account(std::move(account))
    , m_model(std::move(model))
    , m_promptBytes(promptBytes)
    , m_usedBefore(services.usage.current(m_account.id).total())
{}

TokenCount AnswerAccounting::estimated(std::size_t answerBytes) const
{
    return TokenCount{estimatedTokens(m_promptBytes), estimatedTokens(answerBytes)};
}

bool AnswerAccounting::isOverdrawn(std::size_t answerBytes) const
{
    return UsageLedger::overdrawn(m_account, m_usedBefore + estimated(answerBytes).total());
}

AnswerAccounting::Settlement AnswerAccounting::settle(const std::optional<TokenCount> &tokens,
                                                      std::size_t answerBytes)
{
    const TokenCount counted = tokens.value_or(estimated(answerBytes));
    m_services.usage.add(m_account.id, counted, m_model);
    const auto amount = [](std::int64_t count) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
    };
    m_services.metrics.tokens.add({m_model, "input"}, amount(counted.input));
    m_services.metrics.tokens.add({m_model, "output"}, amount(counted.output));
    const Account account = m_services.accounts.find(m_account.id).value_or(m_account);
    return {counted, m_services.usage.figures(account)};
}

} // namespace quellora::server
