#include "app/CommandLine.h"

#include "base/AppConfig.h"

namespace quellora {

namespace {

constexpr auto startOption = "--or-start";

QByteArray helpText()
{
    QByteArray text = "Usage: quellora [COMMAND]\n"
                      "\n"
                      "Without a command: starts Quellora, or brings its window to the front if it "
                      "is running.\n"
                      "\n"
                      "Commands for the running Quellora:\n";
    for (const RemoteCommand &command : remoteCommands)
        text += "  " + QByteArray(command.name).leftJustified(17) + command.summary + '\n';
    text += "\n"
            "Options:\n"
            "  --or-start       with a command: start Quellora if it is not running\n"
            "  -h, --help       print this help\n"
            "  -v, --version    print the version\n"
            "\n"
            "Exit status: 0 done, 1 refused or no reply, 2 wrong usage, 3 Quellora is not "
            "running.\n";
    return text;
}

CommandLine refusal(const QByteArray &reason)
{
    return {CommandLine::Mode::Refuse, nullptr, false,
            "quellora: " + reason + "; see quellora --help\n"};
}

} // namespace

CommandLine CommandLine::parse(const QByteArrayList &arguments)
{
    CommandLine line;
    for (const QByteArray &argument : arguments) {
        if (argument == "-h" || argument == "--help")
            return {Mode::Print, nullptr, false, helpText()};
        if (argument == "-v" || argument == "--version")
            return {Mode::Print, nullptr, false,
                    QByteArray("quellora ") + AppConfig::appVersion + '\n'};
        if (argument == startOption) {
            line.startsIfNotRunning = true;
            continue;
        }
        if (argument.startsWith('-') && !argument.startsWith("--") && !line.command)
            return {};
        const RemoteCommand *command = findRemoteCommand(argument);
        if (!command)
            return refusal("unknown argument '" + argument + "'");
        if (line.command)
            return refusal("only one command is possible");
        line.command = command;
        line.mode = Mode::Send;
    }
    if (line.startsIfNotRunning && !line.command)
        return refusal(QByteArray(startOption) + " needs a command");
    return line;
}

} // namespace quellora
