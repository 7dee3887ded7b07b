#pragma once

#include "app/RemoteCommand.h"

#include <QByteArrayList>

namespace quellora {

/// What the program's arguments ask for.
struct CommandLine
{
    enum class Mode {
        /// Start the program.
        Run,
        /// Send the command to the running program.
        Send,
        /// Print the text to standard output and exit with 0.
        Print,
        /// Print the text to standard error and exit with usageError.
        Refuse,
    };

    /// Exit codes other than 0; 1 means that the running program refused or did not reply.
    static constexpr int usageError = 2;
    static constexpr int notRunning = 3;

    Mode mode = Mode::Run;
    const RemoteCommand *command = nullptr;
    /// Start the program if the command finds none running.
    bool startsIfNotRunning = false;
    QByteArray text;

    /// @param arguments without the program's name. Arguments with a single dash are the
    ///        toolkit's, so they start the program.
    static CommandLine parse(const QByteArrayList &arguments);
};

} // namespace quellora
