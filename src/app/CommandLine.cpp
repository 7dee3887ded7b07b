#include "app/CommandLine.h"

#include "base/AppConfig.h"
#include "history/CaptureSession.h"

#include <QFile>

namespace quellora {

namespace {

constexpr auto startOption = "--or-start";
constexpr auto exportCommand = "export";
constexpr auto formatOption = "--format";

QByteArray helpText()
{
    QByteArray text = "Usage: quellora [COMMAND]\n"
                      "\n"
                      "Without a command: starts Quellora, or brings its window to the front if it "
                      "is running.\n"
                      "\n"
                      "Commands for the running Quellora:\n";
    for (const RemoteCommand &command : remoteCommands) {
        QByteArray usage = command.name;
        if (command.takesOperand())
            usage += " NAME";
        text += "  " + usage.leftJustified(21) + command.summary + '\n';
    }
    text += "\n"
            "Commands for the stored threads, with or without a running Quellora:\n"
            "  export ID --format md|html|pdf [--force] FILE\n"
            "                       write a thread to FILE; ID may be \"latest\"\n"
            "  export --list        print ID, time and title of every thread\n"
            "\n"
            "Options:\n"
            "  --or-start           with a command: start Quellora if it is not running\n"
            "  --force              with export: replace FILE if it is there\n"
            "  -h, --help           print this help\n"
            "  -v, --version        print the version\n"
            "\n"
            "Exit status: 0 done, 1 failed, refused or no reply, 2 wrong usage, 3 Quellora is not "
            "running,\n"
            "4 no such thread, 5 FILE is there already, 6 FILE can't be written.\n";
    return text;
}

CommandLine refusal(const QByteArray &reason)
{
    return {CommandLine::Mode::Refuse,
            nullptr,
            {},
            false,
            "quellora: " + reason + "; see quellora --help\n"};
}

/// What prints help or the version; nullopt for other arguments.
std::optional<CommandLine> informationFor(const QByteArray &argument)
{
    using Mode = CommandLine::Mode;
    if (argument == "-h" || argument == "--help")
        return CommandLine{Mode::Print, nullptr, {}, false, helpText()};
    if (argument == "-v" || argument == "--version")
        return CommandLine{Mode::Print,
                           nullptr,
                           {},
                           false,
                           QByteArray("quellora ") + AppConfig::appVersion + '\n'};
    return std::nullopt;
}

/// @param arguments behind "export"
CommandLine parseExport(const QByteArrayList &arguments)
{
    CommandLine line;
    line.mode = CommandLine::Mode::Export;
    ExportRequest &request = line.exportRequest;
    std::optional<QByteArray> format;
    QByteArrayList operands;
    bool mayBeOption = true;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QByteArray &argument = arguments[i];
        if (!mayBeOption || !argument.startsWith('-')) {
            operands.append(argument);
        } else if (const auto information = informationFor(argument)) {
            return *information;
        } else if (argument == "--") {
            mayBeOption = false;
        } else if (argument == "--list") {
            request.listsThreads = true;
        } else if (argument == "--force") {
            request.replacesFile = true;
        } else if (argument == formatOption && i + 1 < arguments.size()) {
            format = arguments[++i];
        } else if (argument.startsWith(QByteArray(formatOption) + '=')) {
            format = argument.mid(argument.indexOf('=') + 1);
        } else if (argument == formatOption) {
            return refusal("--format needs md, html or pdf");
        } else {
            return refusal("unknown argument '" + argument + "'");
        }
    }
    if (request.listsThreads) {
        if (!operands.isEmpty() || format || request.replacesFile)
            return refusal("--list takes nothing else");
        return line;
    }
    if (operands.size() != 2 || operands[1].isEmpty())
        return refusal("export needs the ID of a thread and a file");
    if (operands[0] != "latest") {
        request.thread = uuidFromText(QString::fromLocal8Bit(operands[0]));
        if (!request.thread)
            return refusal("'" + operands[0] + "' is no ID of a thread");
    }
    request.path = QFile::decodeName(operands[1]);
    const auto found =
        format ? exportformat::fromName(*format) : exportformat::fromFileName(request.path);
    if (!found)
        return refusal(format ? "unknown format '" + *format + "'"
                              : QByteArray("export needs --format md, html or pdf"));
    request.format = *found;
    return line;
}

} // namespace

CommandLine CommandLine::parse(const QByteArrayList &arguments)
{
    if (arguments.value(0) == exportCommand)
        return parseExport(arguments.mid(1));
    CommandLine line;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QByteArray &argument = arguments[i];
        if (const auto information = informationFor(argument))
            return *information;
        if (argument == startOption) {
            line.startsIfNotRunning = true;
            continue;
        }
        if (argument == exportCommand)
            return refusal("export comes first and takes no command");
        if (argument.startsWith('-') && !argument.startsWith("--") && !line.command)
            return {};
        const RemoteCommand *command = findRemoteCommand(argument);
        if (!command)
            return refusal("unknown argument '" + argument + "'");
        if (line.command)
            return refusal("only one command is possible");
        line.command = command;
        line.mode = Mode::Send;
        if (!command->takesOperand())
            continue;
        // As on the wire: one line of UTF-8.
        line.operand = QString::fromLocal8Bit(arguments.value(++i)).simplified().toUtf8();
        if (line.operand.isEmpty())
            return refusal(QByteArray(command->name) + " needs a name");
        if (line.operand.size() > RemoteCommand::maximumOperand)
            return refusal("the name is too long");
    }
    if (line.startsIfNotRunning && !line.command)
        return refusal(QByteArray(startOption) + " needs a command");
    return line;
}

} // namespace quellora
