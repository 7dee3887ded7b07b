#include "cli/CommandOptions.h"

#include "admin/AdminActions.h"
#include "base/Secrets.h"
#include "base/Text.h"

#include <istream>
#include <stdexcept>

namespace quellora::server {

ChosenPassword choosePassword(const CommandOptions &options, std::istream &in)
{
    if (options.generate == options.passwordStdin)
        throw CLI::ValidationError("give either --generate or --password-stdin");
    if (options.generate) {
        initializeCrypto();
        return {randomPassword(), true};
    }
    ChosenPassword chosen;
    std::getline(in, chosen.password);
    if (!chosen.password.empty() && chosen.password.back() == '\r')
        chosen.password.pop_back();
    if (chosen.password.size() < AdminActions::shortestPassword ||
        chosen.password.size() > AdminActions::longestPassword)
        throw std::runtime_error("a password has " +
                                 std::to_string(AdminActions::shortestPassword) + " to " +
                                 std::to_string(AdminActions::longestPassword) + " bytes");
    return chosen;
}

CLI::Validator wholeNumber(std::int64_t most)
{
    return CLI::Validator(
        [most](std::string &text) {
            const auto number = parseCount(text);
            if (!number || *number > most)
                return "\"" + text + "\" is not a whole number up to " + std::to_string(most);
            text = std::to_string(*number);
            return std::string();
        },
        "");
}

CLI::Validator emailAddress()
{
    return CLI::Validator(
        [](std::string &text) {
            const auto email = normalizedEmail(text);
            if (!email)
                return "\"" + text + "\" is not an e-mail address";
            text = *email;
            return std::string();
        },
        "");
}

} // namespace quellora::server
