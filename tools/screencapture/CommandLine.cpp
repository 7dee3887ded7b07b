#include "CommandLine.h"

#include <algorithm>

namespace quellora::screencapture {

tl::expected<Options, Failure> parseCommandLine(std::span<const char *const> arguments)
{
    Options options;
    bool optionsEnded = false;
    bool hasPath = false;
    for (const std::string_view argument : arguments) {
        if (!optionsEnded && argument.size() > 1 && argument.front() == '-') {
            if (argument == "--") {
                optionsEnded = true;
            } else if (argument == "-C") {
                options.includeCursor = true;
            } else if (argument == "--all") {
                options.area = Options::Area::AllScreens;
            } else if (argument == "--window") {
                options.area = Options::Area::FrontWindow;
            } else if (argument == "--help") {
                options.action = Options::Action::ShowHelp;
                return options;
            } else if (argument == "--version") {
                options.action = Options::Action::ShowVersion;
                return options;
            } else if (argument != "-x") { // -x asks for silence; there is no sound
                return tl::unexpected(
                    Failure{ExitStatus::UnknownOption, "unknown option " + std::string(argument)});
            }
            continue;
        }
        if (hasPath)
            return tl::unexpected(
                Failure{ExitStatus::TooManyPaths, "more than one path: " + std::string(argument)});
        hasPath = true;
        options.path = argument;
    }
    if (options.path.empty())
        return tl::unexpected(Failure{ExitStatus::MissingPath, "no path for the picture given"});
    return options;
}

std::string_view helpText()
{
    return R"(Usage: quellora-screencapture [-x] [-C] [--all | --window] PATH

Writes one PNG picture of the screen with the mouse pointer to PATH. Windows that carry the
property _QUELLORA_CAPTURE_EXCLUDE are left out: what lies beneath them is in the picture.

  -x         silent (there is no sound to switch off; accepted for compatibility)
  -C         include the mouse cursor
  --all      all screens in one picture, as they lie beside each other
  --window   the window in front, as far as it is on the screens
  --help     show this text
  --version  show the version

In a Wayland session the running Quellora takes the picture, always with the cursor. While it does
not run, the desktop's Screenshot portal takes it: all screens, with the cursor or without, as the
desktop decides. The desktop may ask for permission first; it has 60 seconds for everything.

PATH is replaced in one step when the picture is complete; it gets mode 0600. On failure one
line goes to standard error and PATH is left as it was. Exit status:

  0   done
  1   internal error, such as lack of memory
  2   unknown option
  3   no path
  4   more than one path
  5   no display, or the connection to it broke
  6   the screen's contents cannot be read
  7   a window must be left out and the display has no Composite extension
  8   the picture would be too large for the file format
  9   PATH cannot be written
  10  no space left for the file
  16  no window is in front

And for a picture from the desktop's Screenshot portal:

  11  no session bus
  12  no Screenshot portal
  13  the desktop or its user does not permit the picture
  14  the portal failed, or the file that it names cannot be used
  15  the portal's file is not a PNG picture
)";
}

std::string errorLine(std::string_view message)
{
    std::string line = "quellora-screencapture: ";
    line += message;
    std::ranges::replace_if(
        line, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
    line += '\n';
    return line;
}

} // namespace quellora::screencapture
