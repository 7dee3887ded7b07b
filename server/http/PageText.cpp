#include "http/PageText.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quellora::server {
namespace {

constexpr std::string_view style = R"(
:root { color-scheme: light dark; --text: #1c1e24; --dim: #5c6270; --ground: #f3f1ec;
  --card: #fffdf9; --field: #ffffff; --line: #dcd8cd; --outline: #8a8676; --accent: #1c6ad0;
  --fill: #1c6ad0; --hover: #2272da; --press: #1559b0; --danger: #b3261e; --good: #1d7a3a;
  --warn: #8a5a00; --raised: #f3f1ec; }
@media (prefers-color-scheme: dark) {
  :root { --text: #e8e8ea; --dim: #a2a6b3; --ground: #12121c; --card: #1c1e24; --field: #12131a;
    --line: #353946; --outline: #6b7183; --accent: #7db2ff; --danger: #f2a19c; --good: #7fd49a;
    --warn: #e6b87a; --raised: #242730; } }
* { box-sizing: border-box; }
[hidden] { display: none !important; }
body { margin: 0; min-height: 100vh; padding: 8vh 0 48px; background: var(--ground); color: var(--text);
  font: 14px/20px Inter, system-ui, sans-serif; }
main { width: calc(100% - 32px); max-width: 560px; margin: 0 auto; padding: 24px;
  background: var(--card); border: 1px solid var(--line); border-radius: 12px; overflow-wrap: anywhere; }
h1 { margin: 0 0 8px; font-size: 22px; line-height: 28px; font-weight: 600; }
h2 { margin: 24px 0 8px; font-size: 15px; line-height: 20px; font-weight: 600; }
p, li { color: var(--dim); } p { margin: 0 0 12px; }
code { font: 13px ui-monospace, monospace; color: var(--text); overflow-wrap: anywhere; }
form { margin: 0; }
label, legend { display: block; margin: 0 0 12px; color: var(--dim); font-size: 13px; }
fieldset { margin: 0 0 12px; padding: 0; border: 0; min-width: 0; } legend { margin: 0 0 4px; padding: 0; }
input:not([type=radio]):not([type=checkbox]) { width: 100%; margin-top: 4px; padding: 8px 10px; font: inherit; color: var(--text);
  background: var(--field); border: 1px solid var(--outline); border-radius: 6px; }
button, .button { display: inline-block; padding: 7px 14px; font: inherit; font-weight: 500; color: #fff; background: var(--fill);
  border: 1px solid transparent; border-radius: 6px; cursor: pointer; text-decoration: none; }
button:hover { background: var(--hover); } button:active { background: var(--press); }
.plain { color: var(--text); background: transparent; border-color: var(--outline); }
.plain:hover { background: var(--raised); }
.actions { display: flex; flex-wrap: wrap; gap: 8px; margin-top: 16px; }
.list { margin: 0 0 12px; padding: 0; list-style: none; border: 1px solid var(--line); border-radius: 8px; overflow: hidden; }
.list > li { padding: 12px; display: flex; flex-wrap: wrap; gap: 4px 12px; align-items: center; color: var(--text); }
.list > li + li { border-top: 1px solid var(--line); }
.grow { flex: 1 1 200px; min-width: 0; overflow-wrap: anywhere; }
.dim { display:block; color: var(--dim); font-size: 13px; line-height: 18px; }
.choices label { display: flex; gap: 10px; margin: 0; padding: 9px 12px; color: var(--text); font-size: 14px; align-items: flex-start; }
.choices > li { padding: 0; display: block; } .choices input { margin: 3px 0 0; width: 16px; height: 16px; accent-color: var(--fill); }
.tabs { display: flex; gap: 16px; } .tabs label { margin: 0; display: flex; gap: 8px; color: var(--text); font-size: 14px; }
.good { color: var(--good); } .bad { color: var(--danger); } .warn { color: var(--warn); }
.note { padding: 10px 12px; margin: 0 0 16px; border-radius: 8px; background: var(--raised); border-left: 3px solid var(--accent); color: var(--text); }
.note.bad { border-color: var(--danger); } .note.bad, .note.good { color: var(--text); } .note.good { border-color: var(--good); }
details { margin-top: 12px; } details[open] > summary { margin-bottom: 8px; }
input[type=radio] { accent-color: var(--fill); } summary { cursor: pointer; color: var(--accent); }
a { color: var(--accent); }
.danger { background: #b3261e; } .danger:hover { background: #c4342b; } .danger:active { background: #9c1f18; }
.inline { margin: 8px 0 0; } .inline button { margin-top: 4px; }
.choices { max-height: 60vh; overflow-y: auto; } .choices label:hover { background: var(--raised); }
.filter { display: flex; gap: 8px; align-items: end; margin: 0 0 12px; } .filter label { flex: 1; margin: 0; }
.after { margin: 0 0 24px; }
.busy::before { content: ""; display: inline-block; width: 12px; height: 12px; margin: 0 8px -1px 0;
  border: 2px solid var(--outline); border-top-color: transparent; border-radius: 50%; animation: turn 900ms linear infinite; }
@keyframes turn { to { transform: rotate(1turn); } }
@media (prefers-reduced-motion: reduce) { .busy::before { animation: none; } }
@media (max-width: 480px) { body { padding: 0; background: var(--card); }
  main { width: 100%; padding: 20px 16px 40px; border: 0; border-radius: 0; }
  button { padding: 10px 16px; } }
:focus-visible { outline: 2px solid var(--accent); outline-offset: 2px; }
.problem { color: var(--danger); }
)";

constexpr std::string_view hintPlaceholder = "{setup hint}";

constexpr std::array<std::pair<std::string_view, std::string_view>, 6> pages = {{
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
<p>Connect one on the <a href="/account">account page</a>. Or set {setup hint}, and start
<code>quellora-backend</code> again.</p>
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
