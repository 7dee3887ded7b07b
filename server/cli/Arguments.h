#pragma once

#include <tl/expected.hpp>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// The command line, split into the command, its words and its options.
struct Arguments
{
    std::string command;
    std::vector<std::string> words;
    /// Options without their dashes; flags have an empty value.
    std::map<std::string, std::string> options;

    bool has(const std::string &option) const { return options.count(option) > 0; }
    std::optional<std::string> value(const std::string &option) const;

    /// Splits @p words (without the program's name). Options may stand anywhere and take their
    /// value as "--port 1" or "--port=1". The error is ready for the user.
    static tl::expected<Arguments, std::string> parse(const std::vector<std::string> &words);
};

} // namespace quellora::server
