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

bool QueryRoutes::admitted(const Request &request, Response &response, const Account &account) const
{
    const std::string version = request.header("X-App-Version");
    if (!version.empty() &&
        compareVersions(version, m_services.config.service.minimumAppVersion) < 0) {
        replyError(response, 426, "this version of the app is no longer accepted");
        return false;
    }
    const UsageFigures figures = m_services.usage.figures(account);
    if (UsageLedger::spent(account, figures.used)) {
        Log::event("[QueryRoutes] Query refused: allowance of account " +
                   std::to_string(account.id) + " is spent");
        replySpent(response, figures.remaining);
        return false;
    }
    if (const auto wait = m_services.queryRate->acquire(std::to_string(account.id))) {
        Log::event("[QueryRoutes] Query refused: account " + std::to_string(account.id) +
                   " asks too often");
        replyRateLimited(response, *wait);
        return false;
    }
    return true;
}

void QueryRoutes::query(const Request &request, Response &response) const
{
    if (!m_guard.jsonBody(request, response))
        return;
    const auto account = m_guard.account(request, response);
    if (!account)
        return;
    ParsedQuery query = parsedQuery(request.body);
    if (!query.error.empty()) {
        replyError(response, 400, query.error);
        return;
    }
    if (!admitted(request, response, *account))
        return;
    StreamSlots::Slot slot = m_services.streams.acquire(account->id);
    if (!slot) {
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
    Log::event("[QueryRoutes] Query from account " + std::to_string(account->id) + " to model \"" +
               model.id + "\", picture: " + (question.jpeg.empty() ? "no" : "yes"));
    const std::size_t promptBytes = question.prompt.size();
    response.stream = std::make_shared<QueryStream>(
        m_services, AnswerAccounting(m_services, *account, model.id, promptBytes),
        model.usedFallback, model.answer(std::move(question)), std::move(slot), request.id);
}

} // namespace quellora::server
