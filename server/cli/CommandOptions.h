#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace quellora::server {

constexpr std::int64_t mostTokens = 1000000000000LL;

/// The values on the command line.
struct CommandOptions
{
    std::optional<std::string> config;
    std::optional<std::string> data;
    std::optional<std::string> database;
    std::optional<std::string> host;
    std::optional<int> port;
    bool offline = false;
    std::optional<std::int64_t> cap;
    std::optional<std::string> plan;
    bool passwordStdin = false;
    bool generate = false;
    bool json = false;
    std::string email;
    std::int64_t tokens = 0;
    std::string planName;
    std::string file;
    std::string from;
    std::string to;
    // The administrators' commands.
    std::optional<std::string> toEmail;
    std::string id;
    int days = 30;
    int count = 50;
    std::string action;
    std::int64_t before = 0;
    std::string kind = "information";
    std::string title;
    std::string text;
    std::optional<std::int64_t> minutes;
    std::optional<std::string> label;
    std::optional<std::string> url;
    std::vector<std::string> models;
    bool reset = false;
};

struct ChosenPassword
{
    std::string password;
    bool generated = false;
};

/// The password that --generate or --password-stdin asks for. Throws CLI::ValidationError or
/// std::runtime_error.
ChosenPassword choosePassword(const CommandOptions &options, std::istream &in);

/// Accepts decimal numbers up to @p most and removes leading zeros, which the library would take
/// for octal.
CLI::Validator wholeNumber(std::int64_t most);
/// Accepts e-mail addresses and normalises them.
CLI::Validator emailAddress();

} // namespace quellora::server
