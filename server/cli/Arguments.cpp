#include "cli/Arguments.h"

#include <set>

namespace quellora::server {
namespace {

const std::set<std::string> valueOptions = {"config", "data", "host", "port", "cap", "plan"};
const std::set<std::string> flagOptions = {"help",     "version", "password-stdin",
                                           "generate", "offline", "json"};

} // namespace

std::optional<std::string> Arguments::value(const std::string &option) const
{
    const auto found = options.find(option);
    if (found == options.end())
        return std::nullopt;
    return found->second;
}

tl::expected<Arguments, std::string> Arguments::parse(const std::vector<std::string> &words)
{
    Arguments arguments;
    bool onlyWords = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string &word = words[i];
        if (word == "--" && !onlyWords) {
            onlyWords = true;
        } else if (!onlyWords && word == "-h") {
            arguments.options["help"] = "";
        } else if (!onlyWords && word.rfind("-", 0) == 0 && word.size() > 1) {
            const std::size_t equals = word.find('=');
            const std::string name =
                word.rfind("--", 0) == 0 ? word.substr(2, equals - 2) : std::string();
            if (valueOptions.count(name) > 0) {
                if (equals != std::string::npos)
                    arguments.options[name] = word.substr(equals + 1);
                else if (i + 1 < words.size())
                    arguments.options[name] = words[++i];
                else
                    return tl::make_unexpected("--" + name + " needs a value");
            } else if (flagOptions.count(name) > 0 && equals == std::string::npos) {
                arguments.options[name] = "";
            } else {
                return tl::make_unexpected("unknown option " + word);
            }
        } else if (arguments.command.empty()) {
            arguments.command = word;
        } else {
            arguments.words.push_back(word);
        }
    }
    return arguments;
}

} // namespace quellora::server
