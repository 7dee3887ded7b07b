#pragma once

#include <QByteArrayView>
#include <QLocale>
#include <QPageLayout>
#include <QString>

#include <optional>

namespace quellora {

/// The kinds of file that a thread can be exported as.
enum class ExportFormat { Markdown, Html, Pdf };

namespace exportformat {

/// The format called @p name on the command line: "md", "html" or "pdf".
std::optional<ExportFormat> fromName(QByteArrayView name);
/// The format that a file name stands for by its ending; case does not matter.
std::optional<ExportFormat> fromFileName(const QString &path);
/// Ending of the format's files, without the dot.
QString suffix(ExportFormat format);
/// What the format is called in the user interface: "Markdown", "web page", "PDF".
QString title(ExportFormat format);
/// A file name for a thread with this title: without characters that some file system refuses, at
/// most 80 characters long, never empty.
QString fileName(const QString &threadTitle, ExportFormat format);

/// The paper that is common where the locale's people live.
QPageLayout pageLayout(const QLocale &locale);
/// The locale whose paper the user's environment asks for.
QLocale paperLocale();

} // namespace exportformat

} // namespace quellora
