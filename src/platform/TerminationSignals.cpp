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

// A signal handler may only do very little: it writes one byte that the event loop reads.
int wakeUpEnd = -1;

void onSignal(int number)
{
    const char byte = 1;
    if (::write(wakeUpEnd, &byte, 1) != 1)
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
    wakeUpEnd = m_pipe[1];
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
    wakeUpEnd = -1;
    m_notifier.reset();
    for (const int end : m_pipe)
        ::close(end);
}

} // namespace quellora
