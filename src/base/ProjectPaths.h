#pragma once

#include <QDir>
#include <QString>

#include <optional>

namespace quellora {

/// Locates the folder that holds `config.json`.
class ProjectPaths
{
public:
    /// The first folder that holds "config.json": the working directory, then the program's folder
    /// (symbolic links resolved) and its seven nearest ancestors. Empty if none does.
    static std::optional<QDir> projectRoot();
    /// Overload with explicit locations. @p programPath must not be empty.
    static std::optional<QDir> projectRoot(const QString &workingDirectory,
                                           const QString &programPath);
};

} // namespace quellora
