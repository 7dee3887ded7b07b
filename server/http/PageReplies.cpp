#include "http/PageReplies.h"

#include "base/Text.h"
#include "http/PageText.h"

#include <algorithm>

namespace quellora::server {
namespace {

/// The text of the page's h1 element.
std::string titleOf(const std::string &body)
{
    const std::size_t begin = body.find("<h1>");
    const std::size_t end = body.find("</h1>");
    if (begin == std::string::npos || end == std::string::npos)
        return "Quellora";
    return body.substr(begin + 4, end - begin - 4);
}

} // namespace

void replyPage(Response &response, int status, const std::string &body, FormTargets targets,
               bool again)
{
    response.status = status;
    // Browsers also apply form-action to the redirect after a submission, so the sign-in page has
    // to allow the app's listener.
    response.headers.set("Content-Security-Policy",
                         std::string("default-src 'none'; style-src 'self'; base-uri 'none'; "
                                     "frame-ancestors 'none'; form-action 'self'") +
                             (targets == FormTargets::AppListener ? " http://127.0.0.1:9877" : ""));
    response.headers.set("X-Frame-Options", "DENY");
    response.headers.set("Cache-Control", "no-store");
    if (again)
        response.headers.set("Refresh", "1");
    response.setBody(pageHtml(titleOf(body), body), "text/html; charset=utf-8");
}

void replySeeOther(Response &response, const std::string &location)
{
    response.status = 303;
    response.headers.set("Cache-Control", "no-store");
    response.headers.set("Location", location);
}

std::string field(const std::map<std::string, std::string> &fields, const std::string &name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

std::string cookieValue(const Request &request, const std::string &name)
{
    const std::string header = request.header("Cookie");
    for (std::size_t begin = 0; begin < header.size();) {
        const std::size_t end = std::min(header.find(';', begin), header.size());
        const std::string pair = trimmed(std::string_view(header).substr(begin, end - begin));
        if (pair.rfind(name + "=", 0) == 0)
            return pair.substr(name.size() + 1);
        begin = end + 1;
    }
    return "";
}

std::string hidden(const std::string &name, const std::string &value)
{
    return "<input type=\"hidden\" name=\"" + name + "\" value=\"" + htmlEscaped(value) + "\">\n";
}

} // namespace quellora::server
