#include "admin/AdminActions.h"

#include "base/Text.h"
#include "store/StoreCopy.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr std::size_t longestHeader = 120;
constexpr std::size_t longestBody = 8000;
constexpr std::size_t longestLabel = 40;
constexpr std::size_t longestAddress = 2000;
constexpr std::size_t longestSetting = 20000;
constexpr std::int64_t longestCountdown = 60LL * 24 * 365;

tl::unexpected<std::string> refused(std::string why)
{
    return tl::make_unexpected(std::move(why));
}

/// Whether a text is a link to a page: http or https, a host without user name, no blanks.
bool isLink(const std::string &text)
{
    const std::size_t scheme = text.rfind("https://", 0) == 0  ? 8
                               : text.rfind("http://", 0) == 0 ? 7
                                                               : 0;
    const std::string host = text.substr(scheme, text.find_first_of("/?#", scheme) - scheme);
    return scheme > 0 && !host.empty() && host.find('@') == std::string::npos &&
           std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F; });
}

std::string tokens(std::int64_t cap)
{
    return cap == 0 ? "no limit" : std::to_string(cap) + " tokens a month";
}

} // namespace

std::string messageProblem(const AdminMessage &message)
{
    if (trimmed(message.headerText).empty())
        return "A message needs a title.";
    if (trimmed(message.bodyMarkdown).empty())
        return "A message needs a text.";
    if (message.headerText.size() > longestHeader || message.bodyMarkdown.size() > longestBody)
        return "The title or the text is too long.";
    if (message.type != "INFORMATIONAL" && message.type != "BLOCKING")
        return "A message is INFORMATIONAL or BLOCKING.";
    if (message.actionLabel.has_value() != message.actionUrl.has_value())
        return "A button needs both a caption and an address.";
    if (message.actionLabel && message.actionLabel->size() > longestLabel)
        return "The button's caption is too long.";
    if (message.actionUrl &&
        (message.actionUrl->size() > longestAddress || !isLink(*message.actionUrl)))
        return "The button's address must begin with http:// or https://.";
    if (message.forceUpdateInMinutes &&
        (*message.forceUpdateInMinutes < 0 || *message.forceUpdateInMinutes > longestCountdown))
        return "A forced update is due within a year.";
    for (const std::string *text : {&message.headerText, &message.bodyMarkdown}) {
        if (!isStorableText(*text))
            return "The text contains bytes that are no text.";
    }
    return {};
}

AdminActions::Result<Account> AdminActions::account(std::int64_t id) const
{
    if (auto found = m_store.accounts.find(id))
        return *std::move(found);
    return refused("That person is not here any more.");
}

AdminActions::Done AdminActions::change(std::int64_t id, const std::string &action,
                                        const std::string &detail,
                                        const std::function<void(const Account &)> &work) const
{
    Done done;
    m_store.database.transaction([&] {
        done = {};
        const auto found = account(id);
        if (!found) {
            done = refused(found.error());
            return;
        }
        work(*found);
        m_store.audit.add(m_actor, action, found->person, detail);
    });
    return done;
}

AdminActions::Result<Account> AdminActions::create(const std::string &email,
                                                   const std::string &password,
                                                   const std::string &plan,
                                                   std::int64_t tokenCap) const
{
    std::optional<Account> created;
    m_store.database.transaction([&] {
        created = m_store.accounts.create(email, password, plan, tokenCap);
        if (created)
            m_store.audit.add(m_actor, "create-account", created->person,
                              plan + ", " + tokens(tokenCap));
    });
    if (!created)
        return refused("there is already an account " + email);
    return *std::move(created);
}

AdminActions::Done AdminActions::setPassword(std::int64_t id, const std::string &password) const
{
    return change(id, "set-password", "", [&](const Account &account) {
        m_store.accounts.setPassword(account.email, password);
    });
}

AdminActions::Result<AdminActions::Invited>
AdminActions::invite(const std::string &email, const std::string &plan, std::int64_t tokenCap) const
{
    const auto address = normalizedEmail(email);
    if (!address || !isStorableText(*address))
        return refused("That is no e-mail address.");
    if (plan.empty() || plan.size() > longestName || !isStorableText(plan))
        return refused("A plan's name has 1 to 60 characters.");
    if (tokenCap < 0 || tokenCap > mostTokens)
        return refused("That is no allowance.");
    Result<Invited> result = refused("There is already an account with that address.");
    m_store.database.transaction([&] {
        result = refused("There is already an account with that address.");
        const auto created = m_store.accounts.createInvited(*address, plan, tokenCap);
        if (!created)
            return;
        result = Invited{*created, m_store.invitations.issue(created->id)};
        m_store.audit.add(m_actor, "invite", created->person, plan + ", " + tokens(tokenCap));
    });
    return result;
}

AdminActions::Result<AdminActions::Invited> AdminActions::inviteAgain(std::int64_t id) const
{
    const auto found = account(id);
    if (!found)
        return refused(found.error());
    if (!found->isInvited)
        return refused("This person has a password already.");
    Invited invited{*found, ""};
    const Done done = change(id, "invite-again", "", [&](const Account &account) {
        invited.token = m_store.invitations.issue(account.id);
    });
    if (!done)
        return refused(done.error());
    return invited;
}

AdminActions::Done AdminActions::setSuspended(std::int64_t id, bool suspended) const
{
    return change(id, suspended ? "suspend" : "resume", "", [&](const Account &account) {
        m_store.accounts.setSuspended(account.email, suspended);
    });
}

AdminActions::Done AdminActions::setTokenCap(std::int64_t id, std::int64_t tokenCap) const
{
    if (tokenCap < 0 || tokenCap > mostTokens)
        return refused("That is no allowance.");
    return change(id, "set-allowance", tokens(tokenCap), [&](const Account &account) {
        m_store.accounts.setTokenCap(account.email, tokenCap);
    });
}

AdminActions::Done AdminActions::setPlan(std::int64_t id, const std::string &plan) const
{
    if (plan.empty() || plan.size() > longestName || !isStorableText(plan))
        return refused("A plan's name has 1 to 60 characters.");
    return change(id, "set-plan", plan,
                  [&](const Account &account) { m_store.accounts.setPlan(account.email, plan); });
}

AdminActions::Result<int> AdminActions::signOut(std::int64_t id) const
{
    int ended = 0;
    const Done done = change(id, "sign-out", "", [&](const Account &account) {
        ended = m_store.sessions.revokeAll(account.id);
    });
    if (!done)
        return refused(done.error());
    return ended;
}

AdminActions::Done AdminActions::remove(std::int64_t id) const
{
    Done done = change(id, "delete", "",
                       [&](const Account &account) { m_store.accounts.remove(account.email); });
    m_store.database.forgetDeleted();
    return done;
}

AdminActions::Result<std::string> AdminActions::exportPerson(std::int64_t id) const
{
    // The entry comes first, so that it is in the record.
    const Done done = change(id, "export", "", [](const Account &) {});
    if (!done)
        return refused(done.error());
    return personRecord(m_store.database, id);
}

AdminActions::Result<std::string> AdminActions::sendMessage(AdminMessage message,
                                                            std::optional<std::int64_t> id) const
{
    if (std::string problem = messageProblem(message); !problem.empty())
        return refused(std::move(problem));
    std::string messageId;
    const auto send = [&](const std::string &subject) {
        messageId = m_store.messages.add(message, id);
        m_store.audit.add(m_actor, "send-message", subject,
                          messageId + ", " + lowered(message.type) +
                              (message.forceUpdateInMinutes ? ", forced update" : ""));
    };
    std::string problem;
    m_store.database.transaction([&] {
        problem.clear();
        if (!id) {
            send("everybody");
            return;
        }
        if (const auto found = account(*id))
            send(found->person);
        else
            problem = found.error();
    });
    if (!problem.empty())
        return refused(problem);
    return messageId;
}

AdminActions::Done AdminActions::withdrawMessage(const std::string &messageId) const
{
    Done done;
    m_store.database.transaction([&] {
        done = {};
        if (isStorableText(messageId) && m_store.messages.withdraw(messageId))
            m_store.audit.add(m_actor, "withdraw-message", messageId);
        else
            done = refused("That message is not shown any more.");
    });
    return done;
}

AdminActions::Done AdminActions::set(const std::string &setting,
                                     const std::optional<std::string> &value) const
{
    if (value && (value->size() > longestSetting || !isStorableText(*value)))
        return refused("That text is too long or contains bytes that are no text.");
    m_store.database.transaction([&] {
        m_store.settings.set(setting, value);
        // The prompt itself is no business of the trail.
        const bool isLong = setting == settingNames::defaultPrompt;
        std::string detail = !value ? "as configured" : isLong ? "changed" : *value;
        std::replace(detail.begin(), detail.end(), '\n', ' ');
        m_store.audit.add(m_actor, "set", setting, detail);
    });
    return {};
}

AdminActions::Result<std::string> AdminActions::readLog(std::int64_t logId) const
{
    std::string text;
    bool isThere = false;
    m_store.database.transaction([&] {
        text.clear();
        const auto log = m_store.logs.find(logId);
        isThere = log.has_value();
        if (!log)
            return;
        m_store.logs.read(logId, [&](std::string_view piece) {
            text += piece;
            return true;
        });
        const auto owner = m_store.accounts.find(log->accountId);
        m_store.audit.add(m_actor, "read-log", owner ? owner->person : "", std::to_string(logId));
    });
    if (!isThere)
        return refused("That log is not kept any more.");
    return text;
}

} // namespace quellora::server
