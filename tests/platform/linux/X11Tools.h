#pragma once

#include <QProcess>
#include <QStringList>
#include <QtTest>

namespace quellora {

/// Runs a program and waits for its end, processing events; true on exit status 0.
inline bool runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(program, arguments);
    if (!process.waitForStarted())
        return false;
    if (process.state() != QProcess::NotRunning && !finished.wait(20000))
        return false;
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

/// Sends input from another process, e.g. xdotool("key ctrl+alt+c").
inline bool xdotool(const QString &commands)
{
    return runTool(QStringLiteral("xdotool"), commands.split(u' ', Qt::SkipEmptyParts));
}

/// Switches the keyboard layout, as a desktop's settings do.
inline bool setLayout(const QString &layout)
{
    return runTool(QStringLiteral("setxkbmap"), {QStringLiteral("-layout"), layout});
}

} // namespace quellora
