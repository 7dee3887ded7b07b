#include "base/Log.h"
#include "cli/Commands.h"
#include "http/BackendServer.h"
#include "store/Housekeeping.h"
#include "store/OpenDatabase.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <ostream>
#include <thread>

namespace quellora::server {
namespace {

int signalPipe[2] = {-1, -1};

extern "C" void onSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    // A full pipe already holds a byte, so a failed write does not matter.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

bool watchSignals()
{
    if (::pipe(signalPipe) != 0)
        return false;
    for (const int end : signalPipe)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(signalPipe[1], F_SETFL, O_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return true;
}

/// Each connection needs a file descriptor, and the usual soft limit of 1024 is too low for that.
void allowManyConnections()
{
    struct rlimit files = {};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0)
        return;
    files.rlim_cur = files.rlim_max;
    // Where it is refused, connections beyond the limit wait.
    ::setrlimit(RLIMIT_NOFILE, &files);
}

void waitForSignal()
{
    char byte = 0;
    while (::read(signalPipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
}

} // namespace

int serve(const Config &config, CommandContext &context)
{
    if (!watchSignals()) {
        context.err << "quellora-backend: cannot watch for signals\n";
        return exitFailure;
    }
    allowManyConnections();
    Log::setFormat(config.logFormat);
    const SystemClock clock;
    const PasswordHasher hasher(config.security.passwordCost);
    const auto database = openDatabase(config);
    UploadedLogs(*database, clock, config.limits.keptLogs)
        .adopt(config.dataFile.parent_path() / "app-logs");
    BackendServer server(config, *database, hasher, clock);
    const auto port = server.bind();
    if (!port) {
        context.err << "quellora-backend: " << port.error() << '\n';
        return exitFailure;
    }
    if (config.server.allowRemote)
        Log::event("[Serve] WARNING: Connections are not encrypted; put a TLS proxy in front "
                   "before letting other machines in");
    Log::event("[Serve] Store: " + describeDatabase(config) + ", models: " + server.models());
    const Housekeeping housekeeping(*database, clock, server.answers(), config.retention);
    std::thread serving([&server] { server.run(); });
    context.out << "listening on " << server.address() << std::endl;

    waitForSignal();
    Log::event("[Serve] Stopping");
    // Name resolution cannot be interrupted and must not delay the exit.
    std::thread([grace = config.timing.stopGrace] {
        std::this_thread::sleep_for(grace + std::chrono::seconds(8));
        std::_Exit(exitSuccess);
    }).detach();
    std::thread impatient([&server] {
        waitForSignal();
        server.hurry();
    });
    server.stop();
    serving.join();
    onSignal(0);
    impatient.join();
    Log::event("[Serve] Stopped");
    return exitSuccess;
}

} // namespace quellora::server
