#include "export/ThreadExporter.h"

#include "base/WhenFinished.h"
#include "export/ThreadDocument.h"
#include "export/ThreadMarkdown.h"

#include <QPromise>

#include <utility>

namespace quellora {

namespace {

ExportFailure engineFailure(const QString &reason)
{
    return {ExportFailure::Kind::Engine, QStringLiteral("The thread can't be laid out: ") + reason};
}

QStringList answersOf(const CaptureSession &thread)
{
    QStringList answers;
    for (const CaptureSession::Turn &turn : thread.turns)
        answers.append(turn.response);
    return answers;
}

QHash<qint64, QByteArray> picturesOf(const CaptureSession &thread)
{
    // Only those that the text shows.
    QHash<qint64, QByteArray> pictures;
    threadmarkdown::ofThread(thread, [&](const CaptureSession::Screenshot &screenshot) {
        pictures.insert(screenshot.index, screenshot.imageData);
        return QString();
    });
    return pictures;
}

template <typename T>
std::shared_ptr<QPromise<T>> startedPromise()
{
    auto promise = std::make_shared<QPromise<T>>();
    promise->start();
    return promise;
}

template <typename T>
void finish(QPromise<T> &promise, T result)
{
    promise.addResult(std::move(result));
    promise.finish();
}

} // namespace

ThreadExporter::ThreadExporter(std::shared_ptr<ThreadFiles> files, const QPageLayout &layout,
                               QObject *parent)
    : QObject(parent), m_files(std::move(files)), m_layout(layout)
{
    m_worker.setMaxThreadCount(1);
}

ThreadExporter::~ThreadExporter()
{
    m_worker.waitForDone();
}

void ThreadExporter::onWorker(std::function<Result<void>()> work, Done done)
{
    const auto promise = startedPromise<Result<void>>();
    whenFinished(promise->future(), this, std::move(done));
    m_worker.start([promise, work = std::move(work)] { finish(*promise, work()); });
}

QFuture<ThreadExporter::Result<void>> ThreadExporter::exportThread(const CaptureSession &thread,
                                                                   ExportFormat format,
                                                                   const QString &path,
                                                                   Existing existing)
{
    const auto promise = startedPromise<Result<void>>();
    const Done done = [promise](const Result<void> &result) { finish(*promise, result); };
    // Laying out a long thread takes seconds: what would fail anyway fails at once.
    onWorker([path, existing] { return ExportFiles::check(path, existing); },
             [=, this](const Result<void> &possible) {
                 if (!possible)
                     done(possible);
                 else if (format == ExportFormat::Markdown)
                     exportMarkdown(thread, path, existing, done);
                 else
                     exportPage(thread, format, path, existing, done);
             });
    return promise->future();
}

void ThreadExporter::exportMarkdown(const CaptureSession &thread, const QString &path,
                                    Existing existing, const Done &done)
{
    onWorker(
        [files = m_files, thread, path, existing] {
            return ExportFiles(*files).writeWithPictures(
                path, existing, picturesOf(thread), [&thread](const auto &addresses) {
                    return threadmarkdown::ofThread(
                               thread,
                               [&addresses](const CaptureSession::Screenshot &screenshot) {
                                   return addresses.value(screenshot.index);
                               })
                        .toUtf8();
                });
        },
        done);
}

void ThreadExporter::exportPage(const CaptureSession &thread, ExportFormat format,
                                const QString &path, Existing existing, const Done &done)
{
    whenFinished(
        m_renderer.render(answersOf(thread), AnswerRenderer::Purpose::Document), this,
        [=, this](const AnswerRenderer::Result<RenderedAnswers> &answers) {
            if (!answers) {
                done(tl::unexpected(engineFailure(answers.error())));
                return;
            }
            if (format == ExportFormat::Html) {
                onWorker(
                    [files = m_files, thread, answers = *answers, path, existing] {
                        return ExportFiles(*files).write(path, existing,
                                                         threaddocument::ofThread(thread, answers));
                    },
                    done);
                return;
            }
            const auto document = std::make_shared<QByteArray>();
            onWorker(
                [thread, answers = *answers, document]() -> Result<void> {
                    *document = threaddocument::ofThread(thread, answers);
                    return {};
                },
                [=, this](const Result<void> &) { print(*document, path, existing, done); });
        });
}

void ThreadExporter::print(const QByteArray &document, const QString &path, Existing existing,
                           const Done &done)
{
    whenFinished(m_renderer.print(document, m_layout), this,
                 [=, this](const AnswerRenderer::Result<QByteArray> &pdf) {
                     if (!pdf) {
                         done(tl::unexpected(engineFailure(pdf.error())));
                         return;
                     }
                     onWorker([files = m_files, pdf = *pdf, path,
                               existing] { return ExportFiles(*files).write(path, existing, pdf); },
                              done);
                 });
}

QString ThreadExporter::markdownOf(const CaptureSession &thread)
{
    return threadmarkdown::ofThread(thread,
                                    [](const CaptureSession::Screenshot &) { return QString(); });
}

QFuture<ThreadExporter::Result<RichText>> ThreadExporter::richTextOf(const CaptureSession &thread)
{
    const auto promise = startedPromise<Result<RichText>>();
    whenFinished(
        m_renderer.render(answersOf(thread), AnswerRenderer::Purpose::Pasting), this,
        [promise, thread](const AnswerRenderer::Result<RenderedAnswers> &answers) {
            if (!answers)
                finish(*promise, Result<RichText>(tl::unexpected(engineFailure(answers.error()))));
            else
                finish(*promise,
                       Result<RichText>(RichText{threaddocument::forPasting(thread, answers->html),
                                                 markdownOf(thread)}));
        });
    return promise->future();
}

QFuture<ThreadExporter::Result<RichText>> ThreadExporter::richTextOf(const QString &answer)
{
    const auto promise = startedPromise<Result<RichText>>();
    whenFinished(
        m_renderer.render({answer}, AnswerRenderer::Purpose::Pasting), this,
        [promise, answer](const AnswerRenderer::Result<RenderedAnswers> &answers) {
            if (!answers)
                finish(*promise, Result<RichText>(tl::unexpected(engineFailure(answers.error()))));
            else
                finish(*promise, Result<RichText>(RichText{answers->html.constFirst(), answer}));
        });
    return promise->future();
}

} // namespace quellora
