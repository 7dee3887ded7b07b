#pragma once

#include <QObject>

#include <functional>
#include <memory>

class QSocketNotifier;

namespace quellora {

/// Handles SIGTERM, SIGINT and SIGHUP in the event loop, so that the program can shut down cleanly:
/// clear the session, release the hot keys and remove temporary files. A second signal of the same
/// kind terminates the process immediately.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    /// At most one instance per process.
    /// @param handler called on the main thread
    explicit TerminationSignals(std::function<void()> handler, QObject *parent = nullptr);
    /// Restores the default signal handlers.
    ~TerminationSignals() override;

private:
    std::function<void()> m_handler;
    int m_pipe[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace quellora
