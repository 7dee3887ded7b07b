#include "admin/AdminPage.h"
#include "admin/ModelChoices.h"

#include "base/Text.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>

namespace quellora::server {
namespace {

ModelChoices inForce(const Visit &visit, const std::vector<ModelSettings> &all)
{
    return modelChoices(visit.store.settings, visit.store.config.service, all,
                        visit.store.config.defaultModel);
}

std::string modelForm(const Visit &visit, const std::vector<ModelSettings> &all,
                      const ModelChoices &choices)
{
    std::string html = "<h2>Offered models</h2>\n" + formStart(visit, "/admin/models") +
                       "<ul class=\"list choices\">\n";
    for (std::size_t i = 0; i < all.size(); ++i) {
        const ModelSettings &model = all[i];
        html += "<li><label><input type=\"checkbox\" name=\"m" + std::to_string(i) + "\" value=\"" +
                htmlEscaped(model.id) + "\"" + (choices.offers(model.id) ? " checked" : "") +
                "><span class=\"grow\">" + htmlEscaped(model.displayName) + "<span class=\"dim\">" +
                htmlEscaped(model.id) +
                (model.destination.empty() ? ""
                 : isLoopbackHost(model.destination)
                     ? " · pictures stay on the server"
                     : " · pictures go to " + htmlEscaped(model.destination)) +
                "</span></span></label></li>\n";
    }
    html += "</ul>\n<label>The model that answers unless the user picks another<select "
            "name=\"default\">\n";
    for (const ModelSettings &model : all)
        html += "<option value=\"" + htmlEscaped(model.id) + "\"" +
                (model.id == choices.defaultModel ? " selected>" : ">") +
                htmlEscaped(model.displayName) + "</option>\n";
    return html + "</select></label>\n<div class=\"actions\">\n" + submit("Save", "models") +
           "</div>\n</form>\n<p class=\"dim\">Models are added in the configuration file or on the "
           "account page of the machine that runs the server.</p>\n";
}

std::string promptForm(const Visit &visit, const ModelChoices &choices)
{
    const bool isOwn = visit.store.settings.get(settingNames::defaultPrompt).has_value();
    return "<h2>Default prompt</h2>\n<p>Sent with a screenshot when the user typed nothing.</p>\n" +
           formStart(visit, "/admin/models") +
           "<label>Prompt<textarea name=\"prompt\" rows=\"12\" maxlength=\"16000\" required>\n" +
           htmlEscaped(choices.defaultPrompt) + "</textarea></label>\n<div class=\"actions\">\n" +
           submit("Save prompt", "prompt") +
           (isOwn ? "<button type=\"submit\" name=\"action\" value=\"configured\" formnovalidate" +
                        std::string(plainButton) + ">Back to the configured one</button>\n"
                  : "") +
           "</div>\n</form>\n";
}

PageReply models(const Visit &visit, const std::string &problem = "")
{
    const std::vector<ModelSettings> all = visit.store.models();
    const ModelChoices choices = inForce(visit, all);
    return PageReply::page("Models",
                           heading("Models") + problemNote(problem) + doneNote(visit) +
                               "<div class=\"columns\"><section>\n" + promptForm(visit, choices) +
                               "</section><section>\n" + modelForm(visit, all, choices) +
                               "</section></div>\n",
                           problem.empty() ? 200 : 400);
}

PageReply saveModels(const Visit &visit)
{
    const std::vector<ModelSettings> all = visit.store.models();
    const std::string wanted = visit.field("default");
    std::string hidden;
    bool isOffered = false;
    std::size_t count = 0;
    for (const ModelSettings &model : all) {
        // The value names the model, so that a list that has changed meanwhile mixes up nothing.
        const std::string &id = model.id;
        const bool isTicked =
            std::any_of(visit.fields.begin(), visit.fields.end(), [&](const auto &entry) {
                return entry.first.starts_with('m') && entry.second == id;
            });
        isOffered = isOffered || (isTicked && id == wanted);
        count += isTicked ? 1 : 0;
        if (!isTicked)
            hidden += (hidden.empty() ? "" : "\n") + id;
    }
    if (count == 0)
        return models(visit, "Offer at least one model.");
    if (!isOffered)
        return models(visit, "The model that answers by default must be offered.");
    const AdminActions actions = visit.actions();
    std::string problem;
    visit.store.database.transaction([&] {
        problem.clear();
        for (const auto &result :
             {actions.set(settingNames::hiddenModels,
                          hidden.empty() ? std::nullopt : std::optional(hidden)),
              actions.set(settingNames::defaultModel, wanted == visit.store.config.defaultModel
                                                          ? std::nullopt
                                                          : std::optional(wanted))}) {
            if (!result)
                problem = result.error();
        }
    });
    return problem.empty() ? PageReply::to("/admin/models?done=models") : models(visit, problem);
}

PageReply save(const Visit &visit)
{
    const std::string action = visit.field("action");
    if (action == "models")
        return saveModels(visit);
    std::string prompt = visit.field("prompt");
    std::erase(prompt, '\r');
    if (action == "prompt" && trimmed(prompt).empty())
        return models(visit, "The default prompt must not be empty.");
    const auto done = visit.actions().set(
        settingNames::defaultPrompt, action == "prompt" ? std::optional(prompt) : std::nullopt);
    return done ? PageReply::to("/admin/models?done=prompt") : models(visit, done.error());
}

} // namespace

void addModelPages(AdminPages &all)
{
    all.pages["/admin/models"] = [](const Visit &visit) { return models(visit); };
    all.forms["/admin/models"] = save;
}

} // namespace quellora::server
