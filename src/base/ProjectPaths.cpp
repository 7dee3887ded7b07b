#include "base/ProjectPaths.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace quellora {

namespace {

bool holdsConfig(const QDir &folder)
{
    return QFileInfo(folder.filePath(QStringLiteral("config.json"))).isFile();
}

} // namespace

std::optional<QDir> ProjectPaths::projectRoot()
{
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.isEmpty())
        qFatal("The program was started without its own path as first argument");
    // A bare name was found through PATH and is not a usable path.
    const QString program = arguments.constFirst().contains(QLatin1Char('/'))
                                ? arguments.constFirst()
                                : QCoreApplication::applicationFilePath();
    return projectRoot(QDir::currentPath(), program);
}

std::optional<QDir> ProjectPaths::projectRoot(const QString &workingDirectory,
                                              const QString &programPath)
{
    const QDir working(workingDirectory);
    if (holdsConfig(working))
        return working;

    const QFileInfo program(programPath);
    const QString resolved = program.canonicalFilePath();
    QDir folder = QFileInfo(resolved.isEmpty() ? program.absoluteFilePath() : resolved).dir();
    constexpr int foldersToCheck = 8;
    for (int i = 0; i < foldersToCheck; ++i) {
        if (holdsConfig(folder))
            return folder;
        const QString before = folder.absolutePath();
        if (!folder.cdUp() || folder.absolutePath() == before)
            break;
    }
    return std::nullopt;
}

} // namespace quellora
