#include "app/EmergencyExit.h"

#include "base/Log.h"

#include <QCoreApplication>

#include <cstdlib>
#include <utility>

// Of the Itanium C++ ABI, 3.3.5. Not every standard library declares them.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the ABI's
extern "C" {
int __cxa_atexit(void (*handler)(void *), void *argument, void *object) noexcept;
void __cxa_finalize(void *object);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace quellora {

namespace {

constexpr int maxExitingThreads = 16;

std::atomic<EmergencyExit *> activeInstance = nullptr;

/// Stands for the shared object whose handlers are taken back.
char latestHandlers = 0;
/// Taking handlers back calls them, on the thread that does it.
thread_local bool isTakingBack = false;

} // namespace

EmergencyExit::EmergencyExit(std::function<void()> finish, std::chrono::milliseconds timeout)
    : m_finish(std::move(finish)), m_timeout(timeout), m_mainThread(std::this_thread::get_id())
{
    Q_ASSERT(!activeInstance);
    activeInstance = this;
    // Stays registered while others are taken back.
    std::atexit(&EmergencyExit::onExit);
    registerExitHandlers();
}

EmergencyExit::~EmergencyExit()
{
    activeInstance = nullptr;
}

void EmergencyExit::registerExitHandlers()
{
    // The C library keeps every handler until the end. It uses the place of those again that were
    // taken back and had none behind them.
    isTakingBack = true;
    __cxa_finalize(&latestHandlers);
    isTakingBack = false;
    // Handlers run in reverse order of registration. Each thread that calls exit() pops one, so
    // register enough that no thread gets to the libraries' handlers.
    for (int thread = 0; thread < maxExitingThreads; ++thread)
        __cxa_atexit([](void *) { onExit(); }, nullptr, &latestHandlers);
}

void EmergencyExit::exitNow()
{
    EmergencyExit *instance = activeInstance;
    if (instance && std::this_thread::get_id() != instance->m_mainThread) {
        // Run on the main thread, which owns the state to be saved.
        if (QCoreApplication *application = QCoreApplication::instance())
            QMetaObject::invokeMethod(
                application, [] { exitNow(); }, Qt::QueuedConnection);
        // Use a timeout: the main thread may be blocked waiting for this one, e.g. a render thread.
        std::this_thread::sleep_for(instance->m_timeout);
        // The main thread may have exited in the ordinary way meanwhile.
        instance = activeInstance;
    }
    if (!instance)
        std::_Exit(EXIT_FAILURE);
    instance->finishAndTerminate();
}

void EmergencyExit::onExit()
{
    if (activeInstance && !isTakingBack)
        exitNow();
}

void EmergencyExit::finishAndTerminate()
{
    if (m_isFinishing.exchange(true)) {
        // Another thread is already finishing and will end the process.
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    }
    Log::event(QStringLiteral("[main] ERROR: Ended from within, as when the display goes away"));
    m_finish();
    std::_Exit(EXIT_FAILURE);
}

} // namespace quellora
