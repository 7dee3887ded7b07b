#include "app/ExportDialog.h"

#include "platform/Platform.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QWindow>

#include <utility>

namespace quellora {

void ExportDialog::choose(const QString &suggestedName, ExportFormat format,
                          std::function<void(const Choice &)> onChosen)
{
    cancel();
    if (m_folder.isEmpty() || !QFileInfo(m_folder).isDir())
        m_folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    const QString suffix = exportformat::suffix(format);
    auto *dialog =
        new QFileDialog(nullptr, QStringLiteral("Export as %1").arg(exportformat::title(format)),
                        QFileInfo(m_folder).isDir() ? m_folder : QDir::homePath());
    m_dialog = dialog;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilters({QStringLiteral("%1 (*.%2)").arg(exportformat::title(format), suffix)});
    dialog->setDefaultSuffix(suffix);
    dialog->selectFile(suggestedName);
    dialog->setWindowFlag(Qt::WindowStaysOnTopHint);
    QObject::connect(dialog, &QDialog::finished, dialog,
                     [this, dialog, onChosen = std::move(onChosen)](int result) {
                         const QString path = dialog->selectedFiles().value(0);
                         if (result != QDialog::Accepted || path.isEmpty()) {
                             onChosen({});
                             return;
                         }
                         const QFileInfo file(path);
                         m_folder = file.absolutePath();
                         onChosen({path, file.exists() || file.isSymLink()});
                     });
    dialog->winId();
    if (QWindow *window = dialog->windowHandle())
        m_shell.makeOrdinary(*window);
    dialog->show();
    if (QWindow *window = dialog->windowHandle())
        m_shell.activate(*window);
}

void ExportDialog::cancel()
{
    if (!m_dialog)
        return;
    m_dialog->disconnect();
    delete m_dialog;
}

} // namespace quellora
