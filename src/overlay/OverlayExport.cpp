#include "overlay/OverlayExport.h"

#include "base/Log.h"
#include "base/WhenFinished.h"
#include "export/ThreadMarkdown.h"
#include "history/ThreadController.h"
#include "overlay/OverlayModel.h"

#include <QClipboard>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>

#include <utility>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

bool isEmpty(const CaptureSession &thread)
{
    return thread.turns.isEmpty() && thread.notes.isEmpty() && thread.screenshots.isEmpty();
}

std::optional<ExportFormat> formatOf(HamburgerMenuModel::ExportChoice choice)
{
    using Choice = HamburgerMenuModel::ExportChoice;
    switch (choice) {
    case Choice::MarkdownFile:
        return ExportFormat::Markdown;
    case Choice::WebPage:
        return ExportFormat::Html;
    case Choice::Pdf:
        return ExportFormat::Pdf;
    case Choice::CopyMarkdown:
    case Choice::CopyRichText:
    case Choice::CopyAnswer:
        break;
    }
    return std::nullopt;
}

} // namespace

OverlayExport::OverlayExport(Collaborators collaborators)
    : m_collaborators(std::move(collaborators)), m_exporter(m_collaborators.files)
{
    connect(&m_collaborators.menu, &HamburgerMenuModel::exportRequested, this,
            &OverlayExport::showForCurrent);
    connect(&m_collaborators.menu, &HamburgerMenuModel::exportChosen, this, &OverlayExport::run);
    connect(&m_collaborators.threads, &ThreadController::sessionChanged, this,
            &OverlayExport::updateAvailability);
    updateAvailability();
}

OverlayExport::~OverlayExport()
{
    m_collaborators.chooser.cancel();
}

void OverlayExport::updateAvailability()
{
    const auto &thread = m_collaborators.threads.currentSession();
    m_collaborators.menu.setExportAvailable(thread && !isEmpty(*thread));
}

void OverlayExport::showForCurrent()
{
    const auto &thread = m_collaborators.threads.currentSession();
    if (!thread || isEmpty(*thread))
        return;
    m_subject = thread->id;
    m_collaborators.menu.showExport(threadmarkdown::titleOf(*thread), !thread->turns.isEmpty());
}

void OverlayExport::showFor(const QUuid &id, const QString &title)
{
    m_subject = id;
    m_collaborators.menu.showExport(title, false);
    m_collaborators.overlay.setMenuOpen(true);
}

void OverlayExport::run(Choice choice)
{
    Q_EMIT chosen();
    withThread(m_subject, [this, choice](const CaptureSession &thread) {
        if (const auto format = formatOf(choice))
            exportThread(thread, *format);
        else
            copy(thread, choice);
    });
}

void OverlayExport::withThread(const QUuid &id, WithThread work)
{
    // The thread on show may have entries that are not stored.
    if (const auto &current = m_collaborators.threads.currentSession();
        current && current->id == id) {
        work(*current);
        return;
    }
    if (!m_collaborators.library)
        return;
    whenFinished(
        m_collaborators.library->load(id), this,
        [this, work = std::move(work)](const ThreadLibrary::Result<CaptureSession> &thread) {
            if (thread) {
                work(*thread);
                return;
            }
            log(QStringLiteral("ERROR: Failed to load a session for its export: ") +
                thread.error().description());
            m_collaborators.overlay.showNotice(QStringLiteral("The thread can't be read: ") +
                                               thread.error().reasonForUser());
        });
}

void OverlayExport::exportThread(const CaptureSession &thread, ExportFormat format)
{
    m_collaborators.onDialog(true);
    m_collaborators.chooser.choose(
        exportformat::fileName(threadmarkdown::titleOf(thread), format), format,
        [this, thread, format](const FileChooser::Choice &choice) {
            m_collaborators.onDialog(false);
            if (choice.path.isEmpty())
                return;
            const QString name = QFileInfo(choice.path).fileName();
            m_collaborators.overlay.showProgress(QStringLiteral("Exporting \"%1\"…").arg(name));
            const auto existing = choice.replacesFile ? ThreadExporter::Existing::Replace
                                                      : ThreadExporter::Existing::Keep;
            whenFinished(m_exporter.exportThread(thread, format, choice.path, existing), this,
                         [this, name, format](const ThreadExporter::Result<void> &exported) {
                             if (!exported) {
                                 log(QStringLiteral("ERROR: Failed to export a thread as %1")
                                         .arg(exportformat::title(format)));
                                 m_collaborators.overlay.showNotice(exported.error().text);
                                 return;
                             }
                             log(QStringLiteral("Thread exported as ") +
                                 exportformat::title(format));
                             m_collaborators.overlay.showProgress(
                                 QStringLiteral("Exported \"%1\"").arg(name));
                         });
        });
}

void OverlayExport::copy(const CaptureSession &thread, Choice choice)
{
    if (choice == Choice::CopyMarkdown) {
        QGuiApplication::clipboard()->setText(ThreadExporter::markdownOf(thread));
        m_collaborators.overlay.showProgress(QStringLiteral("Thread copied as Markdown"));
        return;
    }
    const bool isAnswer = choice == Choice::CopyAnswer;
    if (isAnswer && thread.turns.isEmpty())
        return;
    const auto text = isAnswer ? m_exporter.richTextOf(thread.turns.constLast().response)
                               : m_exporter.richTextOf(thread);
    whenFinished(text, this, [this, isAnswer](const ThreadExporter::Result<RichText> &made) {
        if (!made) {
            m_collaborators.overlay.showNotice(made.error().text);
            return;
        }
        auto *data = new QMimeData;
        data->setHtml(made->html);
        data->setText(made->plain);
        QGuiApplication::clipboard()->setMimeData(data);
        m_collaborators.overlay.showProgress(isAnswer
                                                 ? QStringLiteral("Answer copied as rich text")
                                                 : QStringLiteral("Thread copied as rich text"));
    });
}

} // namespace quellora
