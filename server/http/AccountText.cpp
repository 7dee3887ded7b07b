#include "http/AccountText.h"

#include "base/Text.h"
#include "http/PageReplies.h"

#include <algorithm>
#include <cstdio>

namespace quellora::server {
namespace {

using TestKind = ModelTest::Kind;
using Phase = SetupView::Phase;

/// A filter is offered for longer lists.
constexpr std::size_t manyRows = 12;

std::string counted(std::size_t count, const std::string &noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string where(const std::string &host)
{
    return isLoopbackHost(host) ? "Pictures stay on this machine"
                                : "Pictures go to " + htmlEscaped(host);
}

std::string port(const std::string &baseUrl)
{
    return baseUrl.substr(baseUrl.find_last_of(':') + 1);
}

std::string alert(const std::string &problem)
{
    return problem.empty()
               ? ""
               : "<p class=\"note bad\" role=\"alert\">" + htmlEscaped(problem) + "</p>\n";
}

std::string button(const std::string &action, const std::string &text, const char *kind = "",
                   const std::string &name = "")
{
    return "<button type=\"submit\" name=\"action\" value=\"" + action + "\"" + kind +
           (name.empty() ? "" : " aria-label=\"" + htmlEscaped(name) + "\"") + ">" +
           htmlEscaped(text) + "</button>\n";
}

constexpr const char *plain = " class=\"plain\"";

std::string modelNames(const Connection &connection)
{
    std::string names;
    for (const ConnectedModel &model : connection.models)
        names += (names.empty() ? "" : ", ") + htmlEscaped(model.title);
    return names;
}

std::string connectedList(const AccountView &view)
{
    std::string html = "<ul class=\"list\">\n";
    for (const Connection &connection : view.connections) {
        const std::string title = htmlEscaped(connection.title);
        html += "<li><span class=\"grow\">" + title + "<span class=\"dim\">" +
                modelNames(connection) + "</span><span class=\"dim\">" +
                where(hostOfUrl(connection.baseUrl)) +
                "</span></span>\n<form method=\"post\" action=\"/account/change\">\n" +
                hidden("nonce", view.nonce) + hidden("provider", connection.provider) +
                hidden("address", connection.baseUrl) +
                button("change", "Change", plain, "Change " + connection.title) +
                "<details class=\"inline\"><summary aria-label=\"Disconnect " + title +
                "\">Disconnect</summary>\n"
                "<span class=\"dim\">Its key is deleted.</span>\n" +
                button("disconnect", "Disconnect " + connection.title, " class=\"danger\"") +
                "</details>\n</form></li>\n";
    }
    return html + "</ul>\n";
}

std::string configuredList(const AccountView &view)
{
    std::string html = "<ul class=\"list\">\n";
    for (const ModelSettings &model : view.configured)
        html += "<li><span class=\"grow\">" + htmlEscaped(model.displayName) +
                "<span class=\"dim\">" + where(model.destination) + "</span></span></li>\n";
    return html + "</ul>\n<p class=\"dim\">These are set in the configuration file or the "
                  "environment and are changed there.</p>\n";
}

std::string localList(const AccountView &view)
{
    std::string html;
    std::string silent;
    for (const ConnectChoice &choice : view.choices) {
        if (!choice.isLocal)
            continue;
        const auto found =
            std::find_if(view.local.begin(), view.local.end(),
                         [&](const LocalServer &server) { return server.choice.id == choice.id; });
        const bool isConnected = std::any_of(
            view.connections.begin(), view.connections.end(),
            [&](const Connection &connection) { return connection.baseUrl == choice.baseUrl; });
        const std::string title = htmlEscaped(choice.title);
        if (found == view.local.end()) {
            silent += (silent.empty() ? "" : ", ") + title + " (port " + port(choice.baseUrl) + ")";
        } else if (!isConnected) {
            html += "<li><span class=\"grow\">" + title + "<span class=\"dim\">Port " +
                    port(choice.baseUrl) + " · " + counted(found->modelCount, "model") +
                    " · pictures stay on this machine</span></span>\n"
                    "<form method=\"post\" action=\"/account/connect\">\n" +
                    hidden("nonce", view.nonce) + hidden("choice", choice.id) +
                    "<button type=\"submit\">Use " + title + "</button>\n</form></li>\n";
        }
    }
    if (!html.empty())
        html = "<ul class=\"list\">\n" + html + "</ul>\n";
    if (!silent.empty())
        html += "<p class=\"dim\">No answer from " + silent +
                ". <a href=\"/account\">Look again</a></p>\n";
    if (html.empty())
        html = "<p class=\"dim\">Every server that answers here is connected.</p>\n";
    return html;
}

std::string keyForm(const AccountView &view)
{
    std::string html = "<form method=\"post\" action=\"/account/connect\">\n" +
                       hidden("nonce", view.nonce) +
                       "<fieldset class=\"tabs\"><legend>Provider</legend>\n";
    const bool isEntered =
        std::any_of(view.choices.begin(), view.choices.end(), [&](const ConnectChoice &choice) {
            return choice.needsKey && choice.id == view.enteredChoice;
        });
    bool isFirst = true;
    for (const ConnectChoice &choice : view.choices) {
        if (!choice.needsKey)
            continue;
        const bool isOn = isEntered ? choice.id == view.enteredChoice : isFirst;
        isFirst = false;
        html += "<label><input type=\"radio\" name=\"choice\" value=\"" + choice.id + "\"" +
                (isOn ? " checked" : "") + "> " + htmlEscaped(choice.title) + "</label>\n";
    }
    return html +
           "</fieldset>\n<label>Key<input type=\"password\" name=\"key\" autocomplete=\"off\" "
           "spellcheck=\"false\" maxlength=\"512\" required></label>\n"
           "<button type=\"submit\">Continue</button>\n</form>\n";
}

std::string serverForm(const AccountView &view)
{
    std::string html;
    for (const ConnectChoice &choice : view.choices) {
        if (!choice.baseUrl.empty())
            continue;
        const bool isEntered = choice.id == view.enteredChoice;
        html += "<details" + std::string(isEntered ? " open" : "") +
                "><summary>Another server with the OpenAI chat format</summary>\n"
                "<form method=\"post\" action=\"/account/connect\">\n" +
                hidden("nonce", view.nonce) + hidden("choice", choice.id) +
                "<label>Address<input type=\"text\" name=\"address\" inputmode=\"url\" "
                "placeholder=\"https://api.example.com/v1\" spellcheck=\"false\" "
                "maxlength=\"300\" required value=\"" +
                htmlEscaped(isEntered ? view.enteredAddress : "") +
                "\"></label>\n<label>Key, if it wants one<input type=\"password\" name=\"key\" "
                "autocomplete=\"off\" spellcheck=\"false\" maxlength=\"512\"></label>\n"
                "<button type=\"submit\">Continue</button>\n</form></details>\n";
    }
    return html;
}

constexpr std::string_view commands = R"(<p>Accounts live in a file on this machine and are managed
on its command line; usage is shown in the app's menu.</p>
<p>List accounts and their usage:<br><code>quellora-backend list-accounts</code></p>
<p>Change a password:<br><code>quellora-backend set-password EMAIL --generate</code></p>
<p>Sign out everywhere:<br><code>quellora-backend sign-out EMAIL</code></p>
<p><a href="/account/billing">Billing</a> · <a href="/help">Help</a></p>
)";

std::string seconds(std::chrono::milliseconds time)
{
    char text[32];
    // "0.0 s" would look like a mistake.
    std::snprintf(text, sizeof text, "%.1f s",
                  std::max(0.1, static_cast<double>(time.count()) / 1000.0));
    return text;
}

/// The result of a test below the model's name.
std::string testResult(const ModelTest &test)
{
    const auto line = [](const char *kind, const std::string &text) {
        return "<span class=\"dim " + std::string(kind) + "\">" + htmlEscaped(text) + "</span>";
    };
    switch (test.kind) {
    case TestKind::None:
        break;
    case TestKind::Waiting:
        return line("", "Waiting for its turn");
    case TestKind::Running:
        return line("busy", "Asking it about a test picture…");
    case TestKind::SawPicture:
        return line("good", "✓ Answered in " + seconds(test.time) + " and saw the test picture");
    case TestKind::DidNotSee:
        return line("warn", "! Answered in " + seconds(test.time) +
                                ", but did not see that the test picture is red. It said: “" +
                                test.words + "”");
    case TestKind::TextOnly:
        return line("warn", "! Answers text, but takes no pictures. " + test.words);
    case TestKind::Failed:
        return line("bad", "✗ " + test.words);
    }
    return "";
}

std::string rowsHtml(const SetupView &view)
{
    const bool isTesting = view.phase == Phase::Testing;
    std::string html = "<ul class=\"list choices\">\n";
    for (std::size_t i = 0; i < view.rows.size(); ++i) {
        const SetupRow &row = view.rows[i];
        if (!view.isVisible(row) || (isTesting && !row.isChosen))
            continue;
        html += "<li><label><input type=\"checkbox\" name=\"m" + std::to_string(i) + "\"" +
                (row.isChosen ? " checked" : "") + (isTesting ? " disabled" : "") +
                "><span class=\"grow\">" + htmlEscaped(row.model.title) +
                (row.model.title == row.model.name
                     ? ""
                     : "<span class=\"dim\">" + htmlEscaped(row.model.name) + "</span>") +
                testResult(row.test) + "</span></label></li>\n";
    }
    return html + "</ul>\n";
}

std::string setupForm(const SetupView &view)
{
    return "<form method=\"post\" action=\"/account/connect/models\">\n" + hidden("setup", view.id);
}

/// What the owner should know about the place before connecting it.
std::string placeText(const SetupView &view)
{
    const std::string host = "<b>" + htmlEscaped(view.host) + "</b>";
    if (isLoopbackHost(view.host))
        return "<p>Questions and pictures for its models stay on <b>this machine</b>.</p>\n";
    std::string html = "<p>Questions and pictures for its models go to " + host + ".</p>\n";
    if (view.baseUrl.rfind("http://", 0) == 0)
        html += "<p class=\"warn\">This connection is not encrypted: others on the way can read "
                "questions, pictures" +
                std::string(view.hasKey ? " and the key" : "") + ".</p>\n";
    return html;
}

std::string chooseHtml(const SetupView &view)
{
    const bool isTesting = view.phase == Phase::Testing;
    std::string html = setupForm(view);
    if (isTesting)
        return html + rowsHtml(view) +
               "<p class=\"dim\" role=\"status\">Testing. This page renews itself. A local "
               "server may have to load the model first.</p>\n<div class=\"actions\">\n" +
               button("stop", "Stop", plain) + "</div>\n</form>\n";
    // The first button is the one that Return presses in a text field.
    if (view.rows.size() > manyRows)
        html += "<div class=\"filter\"><label>Show only names with<input type=\"search\" "
                "name=\"filter\" maxlength=\"60\" value=\"" +
                htmlEscaped(view.filter) + "\"></label>\n" + button("apply", "Filter", plain) +
                "</div>\n";
    else
        html += "<button type=\"submit\" name=\"action\" value=\"apply\" hidden>Apply</button>\n";
    const auto isVisible = [&view](const SetupRow &row) { return view.isVisible(row); };
    if (std::any_of(view.rows.begin(), view.rows.end(), isVisible))
        html += rowsHtml(view);
    else if (!view.rows.empty())
        html += "<p>No name contains “" + htmlEscaped(view.filter) + "”.</p>\n";
    html +=
        "<details" + std::string(view.rows.empty() ? " open" : "") +
        "><summary>Not in the list?</summary>\n<label>The model's name, as the server calls "
        "it<input type=\"text\" name=\"name\" maxlength=\"200\" spellcheck=\"false\"></label>\n" +
        button("apply", "Add", plain) + "</details>\n<div class=\"actions\">\n";
    // Without a model there is nothing to save or to test yet.
    if (!view.rows.empty())
        html += button("save", "Save") + button("test", "Test", plain);
    if (!view.rows.empty() || view.listProblem.empty())
        html += button("cancel", "Cancel", plain);
    return html + "</div>\n</form>\n";
}

} // namespace

std::string placeName(const std::string &host)
{
    return isLoopbackHost(host) ? "this machine" : host;
}

std::string accountBody(const AccountView &view)
{
    std::string html = "<h1>Your account</h1>\n" + alert(view.problem);
    if (!view.notice.empty())
        html += "<p class=\"note good\" role=\"status\">" + htmlEscaped(view.notice) + "</p>\n";
    if (view.isOffline)
        return html +
               "<p class=\"note\">This backend was started to work offline, so no model answers, "
               "connected or not.</p>\n<h2>Accounts</h2>\n" +
               std::string(commands);
    if (view.connections.empty() && view.configured.empty() && view.notice.empty())
        html += "<p class=\"note\">No model is connected yet. Answers only show the text in the "
                "screenshot.</p>\n";
    if (!view.connections.empty())
        html += "<h2>Connected models</h2>\n" + connectedList(view);
    if (!view.configured.empty())
        html += "<h2>Configured models</h2>\n" + configuredList(view);
    return html + "<h2>Connect a model on this machine</h2>\n" + localList(view) +
           "<h2>Connect a model with a key</h2>\n" + keyForm(view) + serverForm(view) +
           "<h2>Accounts</h2>\n<details><summary>Commands for accounts and passwords</summary>\n" +
           std::string(commands) + "</details>\n";
}

std::string foreignAccountBody()
{
    return "<h1>Your account</h1>\n<p>This is a local installation. Whoever runs it connects its "
           "models on this page, in a browser on the same machine.</p>\n" +
           std::string(commands);
}

std::string setupBody(const SetupView &view)
{
    const std::string title = htmlEscaped(view.title);
    if (view.phase == Phase::Listing)
        return "<h1>Connect " + title + "</h1>\n<p class=\"busy\" role=\"status\">Asking " +
               htmlEscaped(placeName(view.host)) + " for its models…</p>\n" + setupForm(view) +
               "<div class=\"actions\">\n" + button("cancel", "Cancel", plain) +
               "</div>\n</form>\n";
    std::string html = "<h1>" + std::string(view.isChange ? "Change " : "Connect ") + title +
                       "</h1>\n" + alert(view.hint);
    if (!view.listProblem.empty())
        html += alert(view.listProblem) + setupForm(view) + "<div class=\"actions after\">\n" +
                button("retry", "Try again", plain) + button("cancel", "Start over", plain) +
                "</div>\n</form>\n";
    else
        html += placeText(view);
    if (view.listProblem.empty() && view.rows.empty())
        html += "<p>It offers no models. With a server on this machine, load or download one "
                "first.</p>\n";
    return html + chooseHtml(view);
}

} // namespace quellora::server
