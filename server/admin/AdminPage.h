#pragma once

#include "admin/AdminActions.h"
#include "http/Message.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace quellora::server {

/// A request of an administrator who is signed in.
struct Visit
{
    const Request &request;
    AdminStore &store;
    Administrator administrator;
    /// The session's token, from the cookie.
    std::string session;
    /// The fields of a submitted form; empty for a page.
    std::map<std::string, std::string> fields;

    AdminActions actions() const { return AdminActions(store, administrator.name); }
    /// A parameter of the address; empty when it is missing.
    std::string parameter(const std::string &name) const
    {
        return request.parameter(name).value_or("");
    }
    /// A whole number among the parameters or fields, or @p otherwise.
    std::int64_t number(const std::string &name, std::int64_t otherwise) const;
    std::string field(const std::string &name) const;
};

/// What a page replies.
struct PageReply
{
    int status = 200;
    std::string title;
    std::string body;
    /// Leads the browser there instead of showing a page.
    std::string location;
    /// The file to save instead of showing a page.
    std::string fileName;
    std::string fileType;

    static PageReply page(std::string title, std::string body, int status = 200)
    {
        return {status, std::move(title), std::move(body), "", "", ""};
    }
    static PageReply to(std::string location) { return {303, "", "", std::move(location), "", ""}; }
    static PageReply file(std::string name, std::string type, std::string content)
    {
        return {200, "", std::move(content), "", std::move(name), std::move(type)};
    }
    static PageReply gone(const std::string &why);
};

using AdminPage = std::function<PageReply(const Visit &)>;

/// The pages and forms by path.
struct AdminPages
{
    std::map<std::string, AdminPage> pages;
    std::map<std::string, AdminPage> forms;
};

void addPeoplePages(AdminPages &all);
void addUsagePages(AdminPages &all);
void addMessagePages(AdminPages &all);
void addModelPages(AdminPages &all);
void addLogPages(AdminPages &all);
void addAuditPages(AdminPages &all);
void addOwnPages(AdminPages &all);

/// A complete page. @p path is the one shown, for the navigation; without @p visit it is the page
/// of somebody who is not signed in.
std::string adminHtml(const std::string &title, const std::string &body, const std::string &path,
                      const Visit *visit);
/// The style sheet of the pages, in addition to the one of all pages.
std::string_view adminStyle();

/// The beginning of a form that belongs to the session.
std::string formStart(const Visit &visit, const std::string &action, const char *attributes = "");
/// A submit button; @p value is sent as "action".
std::string submit(const std::string &text, const std::string &value = "", const char *kind = "");
std::string problemNote(const std::string &problem);
/// What has just been done, named by the parameter "done"; empty for unknown names.
std::string doneNote(const Visit &visit);
/// A heading for a page, as h1.
std::string heading(const std::string &text);
/// "2026-11-22 14:05", UTC; @p never for 0.
std::string shortTime(std::int64_t seconds, const char *never = "never");
/// Names for what stands in the audit trail: e-mail addresses of those who are still here.
std::map<std::string, std::string> knownNames(AdminStore &store);

constexpr const char *plainButton = " class=\"plain\"";
constexpr const char *dangerButton = " class=\"danger\"";

} // namespace quellora::server
