#pragma once

#include <QTimer>

#include <chrono>
#include <functional>

namespace quellora {

/// Single-shot timer that can be replaced in tests. Main thread.
class OneShotTimer
{
public:
    virtual ~OneShotTimer() = default;

    /// Restarts the timer; a pending time-out is dropped.
    virtual void start(std::chrono::milliseconds delay) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

    std::function<void()> onTimeout;
};

/// OneShotTimer based on QTimer. Time during which the machine is suspended does not count.
class QtOneShotTimer : public OneShotTimer
{
public:
    QtOneShotTimer()
    {
        m_timer.setSingleShot(true);
        m_timer.callOnTimeout([this] {
            if (onTimeout)
                onTimeout();
        });
    }

    void start(std::chrono::milliseconds delay) override { m_timer.start(delay); }
    void stop() override { m_timer.stop(); }
    bool isActive() const override { return m_timer.isActive(); }

private:
    QTimer m_timer;
};

} // namespace quellora
