#pragma once

#include "export/FileChooser.h"
#include "export/ThreadExporter.h"
#include "history/ThreadLibrary.h"
#include "panels/HamburgerMenuModel.h"

#include <QObject>
#include <QUuid>

#include <functional>

namespace quellora {

class OverlayModel;
class ThreadController;

/// Exports and copies threads from the panel: the menu's page with the choices, the file dialog,
/// the work, and its outcome in the strip. Main thread only.
class OverlayExport : public QObject
{
    Q_OBJECT
public:
    /// All must outlive this object.
    struct Collaborators
    {
        ThreadController &threads;
        /// Reads stored threads; without it there is only the thread on show.
        ThreadLibrary *library = nullptr;
        HamburgerMenuModel &menu;
        OverlayModel &overlay;
        FileChooser &chooser;
        /// Called with true before a dialog opens and with false after it has closed.
        std::function<void(bool)> onDialog;
        /// Makes the files.
        std::shared_ptr<ThreadFiles> files = std::make_shared<DiskThreadFiles>();
    };

    explicit OverlayExport(Collaborators collaborators);
    ~OverlayExport() override;

    /// Shows the choices for a stored thread in the menu, which opens.
    void showFor(const QUuid &id, const QString &title);

Q_SIGNALS:
    /// A choice has been made; a sheet may close.
    void chosen();

private:
    using Choice = HamburgerMenuModel::ExportChoice;
    using WithThread = std::function<void(const CaptureSession &)>;

    void updateAvailability();
    void showForCurrent();
    void run(Choice choice);
    /// Calls @p work with the thread, or shows why it can't be read.
    void withThread(const QUuid &id, WithThread work);
    void exportThread(const CaptureSession &thread, ExportFormat format);
    void copy(const CaptureSession &thread, Choice choice);

    Collaborators m_collaborators;
    ThreadExporter m_exporter;
    QUuid m_subject;
};

} // namespace quellora
