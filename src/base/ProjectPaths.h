#pragma once

#include <QDir>
#include <QString>

#include <optional>

namespace quellora {

/// Where `config.json` is looked for.
class ProjectPaths
{
public:
    /// The working directory if it holds "config.json"; else the program's folder (links in its
    /// path resolved) or the nearest of its seven ancestors that does; else nothing.
    static std::optional<QDir> projectRoot();
    /// The same for given places. @p programPath must not be empty.
    static std::optional<QDir> projectRoot(const QString &workingDirectory,
                                           const QString &programPath);
};

} // namespace quellora
