#pragma once

#include "export/AnswerRenderer.h"
#include "export/ExportFiles.h"
#include "history/CaptureSession.h"

#include <QFuture>
#include <QObject>
#include <QThreadPool>

#include <functional>
#include <memory>

namespace quellora {

/// A text for the clipboard in both of its forms.
struct RichText
{
    QString html;
    /// Markdown.
    QString plain;
};

/// Takes threads and answers to other programs. Main thread only; pages are made in the page
/// engine, files on a worker. Requires prepareWebEngine() but for Markdown.
class ThreadExporter : public QObject
{
    Q_OBJECT

public:
    using Existing = ExportFiles::Existing;
    template <typename T>
    using Result = tl::expected<T, ExportFailure>;

    /// @param files makes all changes on the disk
    /// @param layout the paper of PDF files
    explicit ThreadExporter(
        std::shared_ptr<ThreadFiles> files = std::make_shared<DiskThreadFiles>(),
        const QPageLayout &layout = exportformat::pageLayout(exportformat::paperLocale()),
        QObject *parent = nullptr);
    /// Waits for a file that is being written.
    ~ThreadExporter() override;

    /// Writes a thread to a file, or, as Markdown, to a file and a folder with its pictures.
    QFuture<Result<void>> exportThread(const CaptureSession &thread, ExportFormat format,
                                       const QString &path, Existing existing);

    /// A whole thread without its pictures.
    static QString markdownOf(const CaptureSession &thread);
    QFuture<Result<RichText>> richTextOf(const CaptureSession &thread);
    QFuture<Result<RichText>> richTextOf(const QString &answer);

private:
    using Done = std::function<void(const Result<void> &)>;

    void onWorker(std::function<Result<void>()> work, Done done);
    void exportMarkdown(const CaptureSession &thread, const QString &path, Existing existing,
                        const Done &done);
    void exportPage(const CaptureSession &thread, ExportFormat format, const QString &path,
                    Existing existing, const Done &done);
    void print(const QByteArray &document, const QString &path, Existing existing,
               const Done &done);

    std::shared_ptr<ThreadFiles> m_files;
    QPageLayout m_layout;
    AnswerRenderer m_renderer;
    /// Last member: its destructor waits for its work.
    QThreadPool m_worker;
};

} // namespace quellora
