#include "app/EmergencyExit.h"

#include "base/Log.h"

#include <QCoreApplication>

#include <cstdlib>
#include <utility>

namespace quellora {

namespace {

constexpr int mostThreadsAtOnce = 16;

std::atomic<EmergencyExit *> current = nullptr;

} // namespace

EmergencyExit::EmergencyExit(std::function<void()> finish, std::chrono::milliseconds patience)
    : m_finish(std::move(finish)), m_patience(patience), m_mainThread(std::this_thread::get_id())
{
    Q_ASSERT(!current);
    current = this;
    comeFirst();
}

EmergencyExit::~EmergencyExit()
{
    current = nullptr;
}

void EmergencyExit::comeFirst()
{
    // What was registered last is run first. Each thread that calls exit() takes one off the list,
    // and would go on to the libraries' if there were no other.
    for (int thread = 0; thread < mostThreadsAtOnce; ++thread)
        std::atexit(&EmergencyExit::onExit);
}

void EmergencyExit::leave()
{
    EmergencyExit *way = current;
    if (way && std::this_thread::get_id() != way->m_mainThread) {
        // The state that is stored belongs to the main thread.
        if (QCoreApplication *application = QCoreApplication::instance())
            QMetaObject::invokeMethod(
                application, [] { leave(); }, Qt::QueuedConnection);
        // It may itself be waiting for this thread, which draws for it.
        std::this_thread::sleep_for(way->m_patience);
        // It may have stored everything and be leaving in order.
        way = current;
    }
    if (!way)
        std::_Exit(EXIT_FAILURE);
    way->finishAndEnd();
}

void EmergencyExit::onExit()
{
    if (current)
        leave();
}

void EmergencyExit::finishAndEnd()
{
    if (m_isFinishing.exchange(true)) {
        // Somebody else does, and ends this thread with the process.
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    }
    Log::event(QStringLiteral("[main] ERROR: Ended from within, as when the display goes away"));
    m_finish();
    std::_Exit(EXIT_FAILURE);
}

} // namespace quellora
