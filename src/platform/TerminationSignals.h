#pragma once

#include <QObject>

#include <functional>
#include <memory>

class QSocketNotifier;

namespace quellora {

/// Turns the system's requests to end the process (SIGTERM, SIGINT, SIGHUP) into one call from the
/// event loop, so that the program quits in order: session cleared, hot keys released, temporary
/// files gone. A second request while the first is being served ends the process at once.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    /// @param handler called on the main thread; one object per process
    explicit TerminationSignals(std::function<void()> handler, QObject *parent = nullptr);
    /// Restores the system's own treatment.
    ~TerminationSignals() override;

private:
    std::function<void()> m_handler;
    int m_pipe[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace quellora
