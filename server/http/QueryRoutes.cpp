#include "http/QueryRoutes.h"

#include "admin/ModelChoices.h"
#include "base/JsonAccess.h"
#include "base/Log.h"
#include "base/Text.h"
#include "http/QueryStream.h"
#include "http/Replies.h"

namespace quellora::server {
namespace {

/// The wait reported to a client with too many running answers.
constexpr std::chrono::seconds busyWait(5);

/// The request's fields, or an error message.
struct ParsedQuery
{
    std::string error;
    std::string prompt;
    std::string jpeg;
    std::optional<std::string> model;
};

bool isJpeg(const std::string &bytes)
{
    return bytes.size() > 3 && bytes.compare(0, 3, "\xFF\xD8\xFF") == 0;
}

ParsedQuery parsedQuery(const std::string &body)
{
    ParsedQuery query;
    const auto record = parsedObject(body);
    const auto prompt = record ? textOf(*record, "prompt") : std::nullopt;
    if (!prompt) {
        query.error = "prompt is required and must be a text";
        return query;
    }
    query.prompt = *prompt;
    const nlohmann::json &image = memberOf(*record, "imageBase64");
    if (image.is_string()) {
        query.jpeg = base64Decoded(image.get_ref<const std::string &>()).value_or("");
        if (!isJpeg(query.jpeg))
            query.error = "imageBase64 must be a JPEG in standard base64";
    } else if (!image.is_null()) {
        query.error = "imageBase64 must be a text";
    }
    const nlohmann::json &model = memberOf(*record, "model");
    if (model.is_string())
        query.model = model.get<std::string>();
    else if (!model.is_null())
        query.error = "model must be a text";
    return query;
}

} // namespace

std::optional<std::int64_t> QueryRoutes::admitted(const Request &request, Response &response,
                                                  const Account &account) const
{
    const std::string version = request.header("X-App-Version");
    if (!version.empty() &&
        compareVersions(version, m_services.config.service.minimumAppVersion) < 0) {
        replyError(response, 426, "this version of the app is no longer accepted");
        return std::nullopt;
    }
    const UsageFigures figures = m_services.usage.figures(account);
    if (UsageLedger::spent(account, figures.used)) {
        Log::event("[QueryRoutes] Query refused: allowance of account " +
                   std::to_string(account.id) + " is spent");
        replySpent(response, figures.remaining);
        return std::nullopt;
    }
    if (const auto wait = m_services.queryRate->acquire(std::to_string(account.id))) {
        Log::event("[QueryRoutes] Query refused: account " + std::to_string(account.id) +
                   " asks too often");
        replyRateLimited(response, *wait);
        return std::nullopt;
    }
    return figures.used;
}

void QueryRoutes::replyRefused(Response &response, const Account &account, std::int64_t used,
                               AnswerRefusal refusal)
{
    const std::string name = "account " + std::to_string(account.id);
    switch (refusal) {
    case AnswerRefusal::NoAccount:
        replyError(response, 403, "the account is suspended");
        return;
    case AnswerRefusal::Spent:
        Log::event("[QueryRoutes] Query refused: too long for what is left to " + name);
        replySpent(response, UsageLedger::figures(account, used).remaining);
        return;
    case AnswerRefusal::Busy:
        Log::event("[QueryRoutes] Query refused: " + name + " has too many running answers");
        replyRateLimited(response, busyWait);
    }
}

void QueryRoutes::query(const Request &request, Response &response) const
{
    if (!m_guard.jsonBody(request, response))
        return;
    const auto changesBefore = m_services.streams.changes();
    const auto caller = m_guard.caller(request, response);
    if (!caller)
        return;
    const Account &account = caller->account;
    ParsedQuery query = parsedQuery(request.body);
    if (!query.error.empty()) {
        replyError(response, 400, query.error);
        return;
    }
    const auto used = admitted(request, response, account);
    if (!used)
        return;
    auto place = m_services.streams.acquire();
    if (!place) {
        replyRateLimited(response, busyWait);
        return;
    }
    const auto catalog = m_services.models.current();
    const ModelChoices choices = modelChoices(m_services.settings, m_services.config.service,
                                              catalog->models(), catalog->defaultModel());
    const bool isOffered = query.model && choices.offers(*query.model);
    ChosenModel model = catalog->choose(isOffered ? *query.model : choices.defaultModel);
    model.usedFallback = query.model && !isOffered;
    ModelRequest question;
    question.prompt = trimmed(query.prompt).empty() ? choices.defaultPrompt : query.prompt;
    question.jpeg = std::move(query.jpeg);
    if (catalog->lacksModel() && m_guard.isOwner(request))
        question.connectPage = "http://" + request.header("Host") + "/account";
    const bool hasPicture = !question.jpeg.empty();
    const std::size_t promptBytes = question.prompt.size();
    AnswerStart answer = model.answer(std::move(question));
    auto accounting = AnswerAccounting::begin(m_services, account, model.id, promptBytes, *used);
    if (!accounting) {
        replyRefused(response, account, *used, accounting.error());
        return;
    }
    Log::event("[QueryRoutes] Query from account " + std::to_string(account.id) + " to model \"" +
               model.id + "\", picture: " + (hasPicture ? "yes" : "no"));
    const auto stream =
        std::make_shared<QueryStream>(m_services, *std::move(accounting), model.usedFallback,
                                      std::move(answer), place, request.id);
    response.stream = stream;
    m_services.streams.add(place, {account.id, caller->sessionId, QueryStream::revoker(stream)});
    // A change that was told before the stream could be found was looked for in vain.
    if (m_services.streams.changes() != changesBefore)
        revoke(account.id);
}

void QueryRoutes::accountChanged(std::int64_t accountId) const
{
    m_services.streams.countChange();
    revoke(accountId);
}

void QueryRoutes::revoke(std::int64_t accountId) const
{
    const auto streams = m_services.streams.ofAccount(accountId);
    if (streams.empty())
        return;
    const auto account = m_services.accounts.find(accountId);
    for (const RunningStreams::Stream &stream : streams) {
        if (!account)
            stream.revoke(Revocation::Deleted);
        else if (account->suspended)
            stream.revoke(Revocation::Suspended);
        else if (!m_services.sessions.exists(stream.sessionId))
            stream.revoke(Revocation::SignedOut);
    }
}

} // namespace quellora::server
