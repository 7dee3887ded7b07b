#include "AtomicFile.h"
#include "CommandLine.h"
#include "PngWriter.h"
#include "PortalFile.h"
#include "RunningProgram.h"
#include "ScreenCapture.h"
#include "ScreenshotPortal.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

namespace {

using namespace quellora::screencapture;

int fail(const Failure &failure)
{
    const std::string line = errorLine(failure.message);
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
    return static_cast<int>(failure.status);
}

int print(std::string_view text)
{
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
    return static_cast<int>(ExitStatus::Success);
}

/// The desktop may ask the user for permission.
constexpr std::chrono::seconds portalLimit{60};

tl::expected<void, Failure> copyFromPortal(const std::string &path)
{
    const auto answer = askScreenshotPortal(portalLimit);
    if (!answer)
        return tl::unexpected(answer.error());
    const auto picture = PortalFile::take(answer->uri, answer->request);
    if (!picture)
        return tl::unexpected(picture.error());
    if (auto checked = picture->checkPng(); !checked)
        return checked;
    auto file = AtomicFile::create(path);
    if (!file)
        return tl::unexpected(file.error());
    return picture->copy([&](auto bytes) { return file->write(bytes); }).and_then([&] {
        return file->commit();
    });
}

tl::expected<void, Failure> captureTo(const Options &options)
{
    // Creates the file last, so that a run killed while it waits for the display leaves none.
    const auto write = [&](const Canvas &canvas) -> tl::expected<void, Failure> {
        auto file = AtomicFile::create(options.path);
        if (!file)
            return tl::unexpected(file.error());
        return writePng(canvas, [&](auto bytes) { return file->write(bytes); }).and_then([&] {
            return file->commit();
        });
    };
    // Its X server would show the windows of X programs only.
    if (const auto session = waylandSession()) {
        const auto done = pictureFromProgram(runningProgramSocket(*session), options.area, write);
        if (done)
            return *done;
        if (options.area == Options::Area::FrontWindow)
            return tl::unexpected(Failure{ExitStatus::NoWindow,
                                          "in a Wayland session only the running Quellora knows "
                                          "which window is in front"});
        return copyFromPortal(options.path);
    }
    return captureScreen(options.includeCursor, options.area, write);
}

} // namespace

int main(int argc, char *argv[])
{
    // A broken connection or a file size limit must end the program with a message and status.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        const std::span<char *const> arguments(argv, static_cast<std::size_t>(argc));
        const auto options = parseCommandLine(arguments.subspan(argc > 0 ? 1 : 0));
        if (!options)
            return fail(options.error());
        switch (options->action) {
        case Options::Action::ShowHelp:
            return print(helpText());
        case Options::Action::ShowVersion:
            return print("quellora-screencapture " QUELLORA_VERSION "\n");
        case Options::Action::Capture:
            break;
        }
        const auto done = captureTo(*options);
        return done ? static_cast<int>(ExitStatus::Success) : fail(done.error());
    } catch (const std::exception &error) {
        return fail({ExitStatus::InternalError, std::string("internal error: ") + error.what()});
    }
}
