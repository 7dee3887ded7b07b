#include "export/ExportFormat.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>

namespace quellora::exportformat {

namespace {

struct Names
{
    ExportFormat format;
    const char *suffix;
    const char *title;
};

constexpr std::array formats{
    Names{ExportFormat::Markdown, "md", "Markdown"},
    Names{ExportFormat::Html, "html", "web page"},
    Names{ExportFormat::Pdf, "pdf", "PDF"},
};

const Names &namesOf(ExportFormat format)
{
    return *std::find_if(formats.begin(), formats.end(),
                         [format](const Names &names) { return names.format == format; });
}

/// Length of a file name without its ending, in characters. In UTF-8 they stay below the 255 bytes
/// that file systems take, with room for the picture folder's ending.
constexpr qsizetype longestName = 80;
constexpr qsizetype longestNameInBytes = 200;

} // namespace

std::optional<ExportFormat> fromName(QByteArrayView name)
{
    for (const Names &names : formats) {
        if (name == QByteArrayView(names.suffix))
            return names.format;
    }
    return std::nullopt;
}

std::optional<ExportFormat> fromFileName(const QString &path)
{
    const qsizetype dot = path.lastIndexOf(QLatin1Char('.'));
    if (dot < 0)
        return std::nullopt;
    const QByteArray ending = path.mid(dot + 1).toLower().toUtf8();
    if (ending == "markdown")
        return ExportFormat::Markdown;
    return ending == "htm" ? ExportFormat::Html : fromName(ending);
}

QString suffix(ExportFormat format)
{
    return QLatin1StringView(namesOf(format).suffix);
}

QString title(ExportFormat format)
{
    return QLatin1StringView(namesOf(format).title);
}

QString fileName(const QString &threadTitle, ExportFormat format)
{
    static const QRegularExpression refused(
        QStringLiteral("[\\x{0000}-\\x{001f}\\x{007f}-\\x{009f}\\x{202a}-\\x{202e}"
                       "\\x{2066}-\\x{2069}/\\\\:*?\"<>|]+"));
    static const QRegularExpression edges(QStringLiteral("^[\\s.\\-]+|[\\s.]+$"));
    QString name = QString(threadTitle).replace(refused, QStringLiteral(" ")).simplified();
    // A name that begins with a dot is hidden, one with a dash looks like an option.
    name.remove(edges);
    name.truncate(longestName);
    while (name.toUtf8().size() > longestNameInBytes ||
           (!name.isEmpty() && name.back().isHighSurrogate()))
        name.chop(1);
    name.remove(edges);
    if (name.isEmpty())
        name = QStringLiteral("Thread");
    return name + QLatin1Char('.') + suffix(format);
}

QPageLayout pageLayout(const QLocale &locale)
{
    using L = QLocale;
    constexpr std::array letterTerritories{
        L::UnitedStates, L::Canada,     L::Mexico,     L::Belize,    L::Chile,
        L::Colombia,     L::CostaRica,  L::Guatemala,  L::Nicaragua, L::Panama,
        L::Philippines,  L::PuertoRico, L::ElSalvador, L::Venezuela};
    const bool isLetter = std::find(letterTerritories.begin(), letterTerritories.end(),
                                    locale.territory()) != letterTerritories.end();
    return QPageLayout(QPageSize(isLetter ? QPageSize::Letter : QPageSize::A4),
                       QPageLayout::Portrait, QMarginsF(16, 16, 16, 18), QPageLayout::Millimeter);
}

QLocale paperLocale()
{
    for (const char *variable : {"LC_ALL", "LC_PAPER"}) {
        const QString name = qEnvironmentVariable(variable);
        if (name.isEmpty())
            continue;
        const QLocale locale(name);
        if (locale.language() != QLocale::C)
            return locale;
    }
    return QLocale::system();
}

} // namespace quellora::exportformat
