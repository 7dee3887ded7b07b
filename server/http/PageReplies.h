#pragma once

#include "http/Message.h"

#include <map>
#include <string>

namespace quellora::server {

/// Where the forms of a page may lead besides this server.
enum class FormTargets { OwnPages, AppListener };

/// Replies with a page around the HTML in @p body. The browser runs no script in it, loads nothing
/// but the style sheet, shows it in no frame and keeps no copy. With @p again the browser asks for
/// the page again after a second.
void replyPage(Response &response, int status, const std::string &body,
               FormTargets targets = FormTargets::OwnPages, bool again = false);
/// Leads the browser to another page of this server after a submission.
void replySeeOther(Response &response, const std::string &location);
/// The field's value, empty when it is missing.
std::string field(const std::map<std::string, std::string> &fields, const std::string &name);
/// The value of the request's cookie @p name; empty when there is none.
std::string cookieValue(const Request &request, const std::string &name);
/// A hidden field of a form.
std::string hidden(const std::string &name, const std::string &value);

} // namespace quellora::server
