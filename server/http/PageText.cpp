#include "http/PageText.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quellora::server {
namespace {

constexpr std::string_view style = R"(
:root { color-scheme: light dark; --text: #1d1f24; --dim: #5c6270; --ground: #f6f7f9;
  --card: #ffffff; --line: #d9dce3; --accent: #2f80ed; --danger: #c62f2b; }
@media (prefers-color-scheme: dark) {
  :root { --text: #e8e8ea; --dim: #8b8e99; --ground: #131418; --card: #1c1e25;
    --line: #353946; --danger: #f0726e; } }
* { box-sizing: border-box; }
body { margin: 0; min-height: 100vh; display: flex; align-items: flex-start;
  justify-content: center; background: var(--ground); color: var(--text);
  font: 15px/1.55 system-ui, sans-serif; }
main { width: 100%; max-width: 480px; margin: 10vh 16px 48px; padding: 28px;
  background: var(--card); border: 1px solid var(--line); border-radius: 12px; }
h1 { margin: 0 0 12px; font-size: 22px; font-weight: 600; }
h2 { margin: 24px 0 8px; font-size: 15px; font-weight: 600; }
p, li { color: var(--dim); } p { margin: 0 0 12px; }
code { font: 13px ui-monospace, monospace; color: var(--text); overflow-wrap: anywhere; }
form { margin: 0 0 10px; }
label { display: block; margin: 0 0 10px; color: var(--dim); font-size: 13px; }
input { width: 100%; margin-top: 4px; padding: 9px 11px; font: inherit; color: var(--text);
  background: var(--ground); border: 1px solid var(--line); border-radius: 8px; }
button { width: 100%; padding: 10px 14px; font: inherit; font-weight: 600; color: #ffffff;
  background: var(--accent); border: 0; border-radius: 8px; cursor: pointer; }
button:focus-visible, input:focus-visible, a:focus-visible {
  outline: 2px solid var(--accent); outline-offset: 2px; }
a { color: var(--accent); } .problem { color: var(--danger); }
)";

constexpr std::string_view hintPlaceholder = "{setup hint}";

constexpr std::array<std::pair<std::string_view, std::string_view>, 7> pages = {{
    {"/account", R"(<h1>Your account</h1>
<p>This is a local installation. Accounts live in a file on this machine and are managed on its
command line; usage is shown in the app's menu.</p>
<p>List accounts and their usage:<br><code>quellora-backend list-accounts</code></p>
<p>Change a password:<br><code>quellora-backend set-password EMAIL --generate</code></p>
<p>Sign out everywhere:<br><code>quellora-backend sign-out EMAIL</code></p>
<p><a href="/account/billing">Billing</a> · <a href="/help">Help</a></p>)"},
    {"/account/billing", R"(<h1>Billing</h1>
<p>There is nothing to pay here. If an account has run out of tokens, whoever runs this backend
can raise or remove its monthly cap:</p>
<p><code>quellora-backend set-cap EMAIL 0</code></p>
<p>0 removes the cap. Then sign out of the app and sign in again.</p>
<p>A model provider that you configured bills you directly.</p>)"},
    {"/reset-password", R"(<h1>Reset a password</h1>
<p>A local installation sends no e-mail. Set a new password on the machine that runs it:</p>
<p><code>quellora-backend set-password EMAIL --generate</code></p>
<p>The new password is printed once, and all sessions of the account end.</p>)"},
    {"/signup", R"(<h1>Create an account</h1>
<p>Accounts of a local installation are created on the machine that runs it:</p>
<p><code>quellora-backend create-account EMAIL --generate</code></p>
<p>The password is printed once.</p>)"},
    {"/pricing", R"(<h1>Pricing</h1>
<p>A local installation has no plans and sells nothing. If it forwards questions to a model
provider, that provider bills whoever owns the API key.</p>
<p>Token caps protect against surprises:<br><code>quellora-backend set-cap EMAIL TOKENS</code></p>)"},
    {"/help", R"(<h1>Help</h1>
<h2>Signing in</h2>
<p>Use the e-mail and password printed when the account was created, or the app's browser
sign-in.</p>
<h2>Answers say that no model is configured</h2>
<p>Set {setup hint}, and start <code>quellora-backend</code> again.</p>
<h2>Where things are</h2>
<p><code>quellora-backend check-config</code> prints the configuration in force, and
<code>quellora-backend --help</code> lists all commands.</p>
<p><a href="/account">Account</a> · <a href="/signup">Create an account</a> ·
<a href="/reset-password">Reset a password</a></p>)"},
    {"/", R"(<h1>Quellora backend</h1>
<p>This machine runs the local backend of Quellora. Sign in from the app.</p>
<p><a href="/help">Help</a> · <a href="/account">Account</a></p>)"},
}};

} // namespace

std::string pageHtml(std::string_view title, std::string_view bodyHtml)
{
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<title>";
    page += htmlEscaped(title);
    page += " — Quellora</title>\n<link rel=\"stylesheet\" href=\"/style.css\">\n</head>\n"
            "<body>\n<main>\n";
    page += bodyHtml;
    page += "\n</main>\n</body>\n</html>\n";
    return page;
}

std::string fixedPageBody(std::string_view path, std::string_view setupHint)
{
    const auto found = std::find_if(pages.begin(), pages.end(),
                                    [&](const auto &page) { return page.first == path; });
    if (found == pages.end())
        return {};
    std::string body(found->second);
    if (const auto at = body.find(hintPlaceholder); at != std::string::npos)
        body.replace(at, hintPlaceholder.size(), setupHint);
    return body;
}

std::string_view pageStyle()
{
    return style;
}

} // namespace quellora::server
