#pragma once

#include "app/RemoteCommand.h"
#include "export/ExportFormat.h"

#include <QByteArrayList>
#include <QString>
#include <QUuid>

#include <optional>

namespace quellora {

/// What `quellora export` is asked for.
struct ExportRequest
{
    /// Only list the stored threads.
    bool listsThreads = false;
    /// The thread; nullopt means the one that was updated last.
    std::optional<QUuid> thread;
    ExportFormat format = ExportFormat::Markdown;
    /// The file, as given.
    QString path;
    /// Replace the file if it is there.
    bool replacesFile = false;
};

/// What the program's arguments ask for.
struct CommandLine
{
    enum class Mode {
        /// Start the program.
        Run,
        /// Send the command to the running program.
        Send,
        /// Export a stored thread and exit; needs no running program and no display.
        Export,
        /// Print the text to standard output and exit with 0.
        Print,
        /// Print the text to standard error and exit with usageError.
        Refuse,
    };

    /// Exit codes other than 0; 1 means that the running program refused or did not reply.
    static constexpr int usageError = 2;
    static constexpr int notRunning = 3;
    /// Of `export` only.
    static constexpr int noSuchThread = 4;
    static constexpr int fileExists = 5;
    static constexpr int fileNotWritten = 6;

    Mode mode = Mode::Run;
    const RemoteCommand *command = nullptr;
    /// Of the command, in UTF-8; empty if it takes none.
    QByteArray operand = {};
    /// Start the program if the command finds none running.
    bool startsIfNotRunning = false;
    QByteArray text;
    ExportRequest exportRequest = {};

    /// @param arguments without the program's name. Arguments with a single dash are the
    ///        toolkit's, so they start the program.
    static CommandLine parse(const QByteArrayList &arguments);
};

} // namespace quellora
