#include "app/Application.h"
#include "app/CommandLine.h"
#include "app/ExportCommand.h"
#include "app/SingleInstance.h"
#include "base/AppConfig.h"
#include "base/Log.h"
#include "page/WebEngineSetup.h"
#include "platform/CoreDumps.h"
#include "platform/FreedMemory.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QQuickWindow>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace quellora;
using namespace std::chrono_literals;

/// Asks the running instance to raise its window; returns the exit code of this process.
int raiseRunningInstance(SingleInstance &instance)
{
    const bool hasReplied = instance.send(*findRemoteCommand("show"), {}, 2s).hasArrived;
    Log::event(hasReplied
                   ? QStringLiteral("[main] Already running; that window was brought to the front")
                   : QStringLiteral("[main] ERROR: Already running, but it does not answer"));
    return hasReplied ? 0 : 1;
}

int fail(const QByteArray &text, int code)
{
    std::fputs(text.constData(), stderr);
    return code;
}

/// Sends a command to the running instance; returns the exit code of this process, or nullopt if
/// none runs.
std::optional<int> sendCommand(const CommandLine &line)
{
    SingleInstance instance(SingleInstance::runtimeFolder(), Platform::displaySession());
    if (!instance.hasListener())
        return std::nullopt;
    const SingleInstance::Reply reply = instance.send(*line.command, line.operand, 2s);
    if (!reply.hasArrived)
        return fail("quellora: the running Quellora does not answer\n", EXIT_FAILURE);
    if (!reply.refusal.isEmpty())
        return fail("quellora: refused: " + reply.refusal.toUtf8() + '\n', EXIT_FAILURE);
    return 0;
}

/// Runs `quellora export`; returns the exit code of this process.
int exportThread(const ExportRequest &request, int argc, char **argv)
{
    Log::silence();
    // The page engine has a lot to say; standard error is for this command's one line.
    const int standardError = ::dup(STDERR_FILENO);
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nothing, STDERR_FILENO);
    QQuickWindow::setSceneGraphBackend(QStringLiteral("software"));
    Platform::prepareWithoutDisplay();
    prepareWebEngine();
    ExportCommand::Outcome outcome;
    {
        QGuiApplication application(argc, argv);
        const CaptureSessionStore store(Platform::create()->applicationSupportDirectory());
        ThreadExporter exporter;
        outcome = ExportCommand(store, exporter).run(request);
    }
    ::dup2(standardError, STDERR_FILENO);
    std::fputs(outcome.output.constData(), stdout);
    return outcome.error.isEmpty() ? outcome.status : fail(outcome.error, outcome.status);
}

} // namespace

int main(int argc, char **argv)
{
    keepMemoryOutOfCoreDumps();
    giveBackFreedMemory();
    const CommandLine line = CommandLine::parse(QByteArrayList(argv + 1, argv + argc));
    switch (line.mode) {
    case CommandLine::Mode::Print:
        std::fputs(line.text.constData(), stdout);
        return 0;
    case CommandLine::Mode::Refuse:
        return fail(line.text, CommandLine::usageError);
    case CommandLine::Mode::Export:
        return exportThread(line.exportRequest, argc, argv);
    case CommandLine::Mode::Send:
        if (const std::optional<int> code = sendCommand(line))
            return *code;
        if (!line.startsIfNotRunning)
            return fail("quellora: Quellora is not running\n", CommandLine::notRunning);
        break;
    case CommandLine::Mode::Run:
        break;
    }

    Platform::prepareOutput();
    // Unbuffered, so that log lines reach the console or file immediately.
    static_cast<void>(std::setvbuf(stdout, nullptr, _IONBF, 0));
    Log::event(QStringLiteral("[main] Process started, launching NSApplication"));
    AppConfig::backendBaseURL();

    auto instance = std::make_unique<SingleInstance>(SingleInstance::runtimeFolder(),
                                                     Platform::displaySession());
    if (instance->claim() == SingleInstance::Claim::Taken)
        return raiseRunningInstance(*instance);

    if (Platform::prefersSoftwareRendering())
        QQuickWindow::setSceneGraphBackend(QStringLiteral("software"));
    Platform::prepareProcess();
    prepareWebEngine();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quellora"));
    QApplication::setApplicationVersion(QLatin1String(AppConfig::appVersion));
    QApplication::setDesktopFileName(QStringLiteral("quellora"));
    // The program keeps running while the panel is hidden and the login window is closed.
    QApplication::setQuitOnLastWindowClosed(false);

    return Application(std::move(instance)).run();
}
