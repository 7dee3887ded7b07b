#include "platform/TerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace quellora {

namespace {

constexpr std::array signalsHandled{SIGTERM, SIGINT, SIGHUP};

// Write end of the pipe. Only async-signal-safe functions may be called in a signal handler, so it
// writes one byte, which wakes up the event loop.
int wakeUpDescriptor = -1;

void onSignal(int number)
{
    const char byte = 1;
    if (::write(wakeUpDescriptor, &byte, 1) != 1)
        ::_exit(128 + number);
    std::signal(number, SIG_DFL);
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> handler, QObject *parent)
    : QObject(parent), m_handler(std::move(handler))
{
    if (::pipe(m_pipe) != 0)
        qFatal("No pipe for termination signals");
    for (const int end : m_pipe) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    wakeUpDescriptor = m_pipe[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_pipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (::read(m_pipe[0], &byte, 1) == 1) {
        }
        m_handler();
    });
    for (const int number : signalsHandled)
        std::signal(number, &onSignal);
}

TerminationSignals::~TerminationSignals()
{
    for (const int number : signalsHandled)
        std::signal(number, SIG_DFL);
    wakeUpDescriptor = -1;
    m_notifier.reset();
    for (const int end : m_pipe)
        ::close(end);
}

} // namespace quellora
