#pragma once

#include "app/CommandLine.h"
#include "export/ThreadExporter.h"
#include "history/CaptureSessionStore.h"

#include <QByteArray>

namespace quellora {

/// `quellora export`: reads a stored thread and writes it to a file, with or without a running
/// program. Requires an application object; blocks until it is done.
class ExportCommand
{
public:
    struct Outcome
    {
        /// Exit status of the process.
        int status = 0;
        /// For standard output.
        QByteArray output = {};
        /// For standard error: one line, empty on success.
        QByteArray error = {};
    };

    /// @param store, exporter must outlive this object
    ExportCommand(const CaptureSessionStore &store, ThreadExporter &exporter)
        : m_store(store), m_exporter(exporter)
    {}

    Outcome run(const ExportRequest &request) const;

private:
    Outcome list() const;

    const CaptureSessionStore &m_store;
    ThreadExporter &m_exporter;
};

} // namespace quellora
