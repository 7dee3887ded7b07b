#pragma once

#include "platform/contract/PlatformHarness.h"

#include <QProcess>

#include <functional>

namespace quellora {

/// Another program on a real desktop: the test's own program, started once more with the first
/// argument OtherProgram::argument. Its window fills the screen and tells over standard output what
/// reaches it.
class OtherProgram : public OtherWindow
{
public:
    static constexpr auto argument = "--other-program";
    /// What the other program does in its system's own way, where it has to.
    struct System
    {
        /// Takes a hot key or gives it up; the system's status, 0 on success.
        std::function<int(quint32 keyCode, quint32 modifiers, bool taken)> claim;
        /// The number that every program knows a window by; QWindow::winId() unless given.
        std::function<quint64(const QWindow &window)> windowNumber;
        /// Whether a program that starts has to ask for the keyboard. Not where a window manager
        /// gives it: the request might be served after the test has gone on.
        bool asksForKeyboard = false;
    };

    /// The main function of the other program; returns when the test ends.
    static int run(int argc, char **argv, const System &system);

    /// Starts it and waits until its window has the keyboard; null when that failed.
    static std::unique_ptr<OtherProgram> start();
    ~OtherProgram() override;

    QStringList keys() const override { return m_keys; }
    QList<QPoint> clicks() const override { return m_clicks; }
    int keyboardLosses() const override { return m_losses; }
    /// The number that the system knows its window by.
    quint64 window() const { return m_window; }
    qint64 processId() const { return m_process.processId(); }
    /// @return false when the system refused
    bool claim(quint32 keyCode, quint32 modifiers, bool taken);

private:
    OtherProgram() = default;
    void read();

    QProcess m_process;
    QStringList m_keys;
    QList<QPoint> m_clicks;
    QList<int> m_claims;
    quint64 m_window = 0;
    bool m_active = false;
    int m_losses = 0;
};

} // namespace quellora
