#pragma once

#include "export/FileChooser.h"

#include <QFileDialog>
#include <QPointer>

namespace quellora {

class ApplicationShell;

/// The desktop's file dialog, or the toolkit's where the desktop has none. An ordinary window:
/// unlike the panel it takes the keyboard focus, and stays above the panel where windows can.
class ExportDialog : public FileChooser
{
public:
    /// @param shell must outlive this object
    explicit ExportDialog(ApplicationShell &shell) : m_shell(shell) {}
    ~ExportDialog() override { ExportDialog::cancel(); }

    void choose(const QString &suggestedName, ExportFormat format,
                std::function<void(const Choice &)> onChosen) override;
    void cancel() override;

private:
    ApplicationShell &m_shell;
    QPointer<QFileDialog> m_dialog;
    /// Where the user has put the last one.
    QString m_folder;
};

} // namespace quellora
