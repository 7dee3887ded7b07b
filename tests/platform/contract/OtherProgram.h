#pragma once

#include "platform/contract/PlatformHarness.h"

#include <QMap>
#include <QProcess>

#include <functional>

namespace quellora {

/// Another program on a real desktop: a second instance of the test program, started with
/// OtherProgram::argument. Its window fills the screen and reports its input events on standard
/// output.
class OtherProgram : public OtherWindow
{
public:
    static constexpr auto argument = "--other-program";
    /// System-specific parts of the other program.
    struct System
    {
        /// Registers or releases a hot key; returns the system's status, 0 on success.
        std::function<int(quint32 keyCode, quint32 modifiers, bool taken)> claim;
        /// The system-wide number of a window; QWindow::winId() if not set.
        std::function<quint64(const QWindow &window)> windowNumber;
        /// Whether a starting program must request activation. False where a window manager focuses
        /// new windows: a late request would interfere with the test.
        bool requestsActivation = false;
    };

    /// The main function of the other program; returns when standard input is closed.
    static int run(int argc, char **argv, const System &system);

    /// Starts the program and waits until its window has the keyboard focus; null on failure.
    /// @param variables of its environment that differ from this process's
    static std::unique_ptr<OtherProgram> start(const QMap<QString, QString> &variables = {});
    ~OtherProgram() override;

    QStringList keys() const override { return m_keys; }
    QList<QPoint> clicks() const override { return m_clicks; }
    int focusLosses() const override { return m_focusLosses; }
    /// The system-wide number of its window.
    quint64 window() const { return m_window; }
    qint64 processId() const { return m_process.processId(); }
    /// Registers or releases a hot key.
    /// @return false if the system refused
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
    int m_focusLosses = 0;
};

} // namespace quellora
