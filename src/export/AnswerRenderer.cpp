#include "export/AnswerRenderer.h"

#include "page/PageAddresses.h"
#include "page/PageRequests.h"
#include "page/ResponsePage.h"

#include <QFile>
#include <QPromise>
#include <QTimer>
#include <QUuid>
#include <QVariantMap>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>

#include <functional>
#include <memory>
#include <utility>

namespace quellora {

namespace {

constexpr quint64 onlyPage = 1;

QString renderScript()
{
    QFile file(QStringLiteral(":/quellora/export/render.js"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("a bundled script is missing");
    return QString::fromUtf8(file.readAll())
        .replace(QStringLiteral("%typesetter%"), QLatin1StringView(pageaddress::mathScript));
}

QString textList(const QStringList &texts)
{
    QStringList literals;
    literals.reserve(texts.size());
    for (const QString &text : texts)
        literals.append(QLatin1Char('"') + responsepage::escapedForJson(text) + QLatin1Char('"'));
    return QLatin1Char('[') + literals.join(QLatin1Char(',')) + QLatin1Char(']');
}

/// Text that a document cannot guess.
QString randomText()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

/// Loads its own page only and keeps quiet.
class QuietPage : public QWebEnginePage
{
public:
    using QWebEnginePage::QWebEnginePage;

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType, bool isMainFrame) override
    {
        return isMainFrame && pagerequests::pageNumberOf(url) == onlyPage;
    }
    QWebEnginePage *createWindow(WebWindowType) override { return nullptr; }
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString &, int,
                                  const QString &) override
    {
        // The messages may contain parts of answers.
    }
};

/// One page in an engine process of its own, from its load to its end.
class Job : public QObject
{
public:
    using OnFailure = std::function<void(const QString &)>;

    Job(const PageContent &content, std::chrono::milliseconds patience, OnFailure onFailure,
        QObject *parent)
        : QObject(parent), m_onFailure(std::move(onFailure)), m_profile(new QWebEngineProfile(this))
    {
        m_filter.setPageNumber(onlyPage);
        m_filter.setPictureKey(content.pictureKey);
        m_bytes.setPage(onlyPage, content);
        m_bytes.beginNavigation(onlyPage);
        m_profile->setUrlRequestInterceptor(&m_filter);
        m_profile->installUrlSchemeHandler(pagerequests::pageScheme.toByteArray(), &m_bytes);
        m_profile->installUrlSchemeHandler(pagerequests::assetScheme.toByteArray(), &m_assets);
        m_page = std::make_unique<QuietPage>(m_profile);
        QWebEngineSettings &settings = *m_page->settings();
        for (const auto unwanted :
             {QWebEngineSettings::LocalStorageEnabled, QWebEngineSettings::WebGLEnabled,
              QWebEngineSettings::PluginsEnabled, QWebEngineSettings::PdfViewerEnabled,
              QWebEngineSettings::ErrorPageEnabled, QWebEngineSettings::AutoLoadIconsForPage,
              QWebEngineSettings::JavascriptCanOpenWindows})
            settings.setAttribute(unwanted, false);
        connect(m_page.get(), &QWebEnginePage::renderProcessTerminated, this,
                [this] { fail(QStringLiteral("the page engine's process ended")); });
        connect(m_page.get(), &QWebEnginePage::titleChanged, this, [this](const QString &title) {
            if (title == m_readyTitle)
                m_onReady();
        });
        m_watch.setSingleShot(true);
        connect(&m_watch, &QTimer::timeout, this,
                [this] { fail(QStringLiteral("the page engine takes too long")); });
        m_watch.start(patience);
    }
    ~Job() override
    {
        m_page->disconnect(this);
        m_page.reset();
    }

    /// Loads the page, runs @p script in it, and calls @p onReady when that has set the title to
    /// readyTitle().
    void run(const QString &script, std::function<void()> onReady)
    {
        m_onReady = std::move(onReady);
        connect(m_page.get(), &QWebEnginePage::loadFinished, this, [this, script](bool isLoaded) {
            if (isLoaded)
                m_page->runJavaScript(script);
            else
                fail(QStringLiteral("the page engine can't load the page"));
        });
        m_page->load(pagerequests::pageUrl(onlyPage));
    }
    const QString &readyTitle() const { return m_readyTitle; }
    QWebEnginePage &page() { return *m_page; }

    /// Call once the result is there.
    void end()
    {
        m_onFailure = nullptr;
        m_watch.stop();
        deleteLater();
    }
    void fail(const QString &reason)
    {
        if (const auto onFailure = std::exchange(m_onFailure, nullptr))
            onFailure(reason);
        end();
    }

private:
    const QString m_readyTitle = randomText();
    OnFailure m_onFailure;
    std::function<void()> m_onReady;
    PageRequestFilter m_filter;
    PageBytes m_bytes;
    AssetBytes m_assets;
    QWebEngineProfile *m_profile;
    /// Destroyed before its profile.
    std::unique_ptr<QuietPage> m_page;
    QTimer m_watch;
};

/// A promise for a job's result that ends with the job.
template <typename T>
std::shared_ptr<QPromise<AnswerRenderer::Result<T>>> startedPromise()
{
    auto promise = std::make_shared<QPromise<AnswerRenderer::Result<T>>>();
    promise->start();
    return promise;
}

template <typename T>
void finish(QPromise<AnswerRenderer::Result<T>> &promise, AnswerRenderer::Result<T> result)
{
    promise.addResult(std::move(result));
    promise.finish();
}

} // namespace

AnswerRenderer::AnswerRenderer(std::chrono::milliseconds patience, QObject *parent)
    : QObject(parent), m_patience(patience)
{}

QFuture<AnswerRenderer::Result<RenderedAnswers>> AnswerRenderer::render(const QStringList &markdown,
                                                                        Purpose purpose)
{
    const auto promise = startedPromise<RenderedAnswers>();
    if (markdown.isEmpty()) {
        finish(*promise, Result<RenderedAnswers>(RenderedAnswers{}));
        return promise->future();
    }
    responsepage::PageAppearance appearance;
    appearance.theme = AppTheme::Light;
    auto *job = new Job(
        {responsepage::singleAnswerPage({}, appearance)}, m_patience,
        [promise](const QString &reason) {
            finish(*promise, Result<RenderedAnswers>(tl::unexpected(reason)));
        },
        this);
    const QString arguments =
        QStringLiteral("(%1,%2,\"%3\")")
            .arg(textList(markdown),
                 purpose == Purpose::Pasting ? QStringLiteral("true") : QStringLiteral("false"),
                 job->readyTitle());
    job->run(QLatin1Char('(') + renderScript() + QLatin1Char(')') + arguments,
             [job, promise, wanted = markdown.size()] {
                 job->page().runJavaScript(QStringLiteral("exported"), [job, promise, wanted](
                                                                           const QVariant &value) {
                     const QVariantMap map = value.toMap();
                     RenderedAnswers answers{map.value(QStringLiteral("answers")).toStringList(),
                                             map.value(QStringLiteral("hasFormulas")).toBool()};
                     if (answers.html.size() != wanted) {
                         job->fail(QStringLiteral("the page engine lost the answers"));
                         return;
                     }
                     finish(*promise, Result<RenderedAnswers>(std::move(answers)));
                     job->end();
                 });
             });
    return promise->future();
}

QFuture<AnswerRenderer::Result<QByteArray>> AnswerRenderer::print(const QByteArray &document,
                                                                  const QPageLayout &layout)
{
    const auto promise = startedPromise<QByteArray>();
    auto *job = new Job(
        {document}, m_patience,
        [promise](const QString &reason) {
            finish(*promise, Result<QByteArray>(tl::unexpected(reason)));
        },
        this);
    // The fonts are in the document, and are read when the layout asks for them.
    const QString script =
        QStringLiteral("document.body.offsetHeight;"
                       "document.fonts.ready.then(() => { document.title = '%1'; });")
            .arg(job->readyTitle());
    job->run(script, [job, promise, layout] {
        job->page().printToPdf(
            [job, promise](const QByteArray &pdf) {
                if (pdf.isEmpty()) {
                    job->fail(QStringLiteral("the page engine can't print"));
                    return;
                }
                finish(*promise, Result<QByteArray>(pdf));
                job->end();
            },
            layout);
    });
    return promise->future();
}

} // namespace quellora
