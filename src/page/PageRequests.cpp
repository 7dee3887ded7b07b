#include "page/PageRequests.h"

#include "page/PageAddresses.h"
#include "page/ResponsePage.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestJob>

#include <array>
#include <utility>

namespace quellora {

namespace {

constexpr QByteArrayView assetHost = "page";

struct Stand
{
    QByteArrayView address;
    const char *asset = nullptr;
    const char *mimeType = nullptr;
};

constexpr std::array stands{
    Stand{pageaddress::markedScript, "marked.js", "text/javascript"},
    Stand{pageaddress::highlightScript, "highlight.min.js", "text/javascript"},
    Stand{pageaddress::lightCodeStyle, "github.min.css", "text/css"},
    Stand{pageaddress::darkCodeStyle, "github-dark.min.css", "text/css"},
    Stand{pageaddress::pageScript, "page.js", "text/javascript"},
    Stand{pageaddress::mathScript, "math.js", "text/javascript"},
};

QByteArray resource(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("bundled page asset %s is missing", qUtf8Printable(path));
    return file.readAll();
}

QUrl assetUrl(const char *name)
{
    return QUrl(QStringLiteral("%1://%2/%3")
                    .arg(QLatin1StringView(pagerequests::assetScheme), QLatin1StringView(assetHost),
                         QLatin1StringView(name)));
}

/// The typesetter with its fonts and rules in it.
QByteArray mathScript()
{
    QByteArray faces;
    const QDir fonts(QStringLiteral(":/quellora/math-fonts"));
    const QFileInfoList files = fonts.entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo &font : files)
        faces += '"' + font.completeBaseName().toLatin1() + "\":\"" +
                 resource(font.filePath()).toBase64() + "\",";
    static const QRegularExpression fontRules(QStringLiteral("@font-face\\{[^}]*\\}"));
    const QString rules =
        QString::fromUtf8(resource(QStringLiteral(":/quellora/page/katex.min.css")))
            .remove(fontRules);
    QByteArray style = resource(QStringLiteral(":/quellora/page-scripts/math-style.js"));
    style.replace("%faces%", faces)
        .replace("%rules%", responsepage::escapedForJson(rules).toUtf8());
    return resource(QStringLiteral(":/quellora/page/katex.min.js")) + '\n' + style;
}

/// Answers @p job from memory; the buffer lives as long as the job.
void reply(QWebEngineUrlRequestJob *job, const QByteArray &mimeType, const QByteArray &content)
{
    auto *buffer = new QBuffer;
    buffer->setData(content);
    QObject::connect(job, &QObject::destroyed, buffer, &QObject::deleteLater);
    job->reply(mimeType, buffer);
}

} // namespace

namespace pagerequests {

QUrl pageUrl(quint64 number)
{
    return QUrl(QStringLiteral("%1:%2").arg(QLatin1StringView(pageScheme)).arg(number));
}

std::optional<quint64> pageNumberOf(const QUrl &url)
{
    if (url.scheme() != QLatin1StringView(pageScheme) || url.hasQuery())
        return std::nullopt;
    bool ok = false;
    const quint64 number = url.path().toULongLong(&ok);
    return ok && number != 0 ? std::optional(number) : std::nullopt;
}

QString pictureAddress(const QByteArray &key, qint64 index)
{
    return QStringLiteral("%1:picture/%2/%3")
        .arg(QLatin1StringView(pageScheme), QLatin1StringView(key))
        .arg(index);
}

std::optional<qint64> pictureIndexOf(const QUrl &url, const QByteArray &key)
{
    const QString text = url.toString(QUrl::FullyEncoded);
    bool ok = false;
    const qint64 index = text.mid(text.lastIndexOf(QLatin1Char('/')) + 1).toLongLong(&ok);
    return ok && !key.isEmpty() && text == pictureAddress(key, index) ? std::optional(index)
                                                                      : std::nullopt;
}

QUrl assetFor(const QUrl &address)
{
    const QByteArray text = address.toEncoded();
    for (const Stand &stand : stands) {
        if (text == stand.address)
            return assetUrl(stand.asset);
    }
    return {};
}

} // namespace pagerequests

void PageRequestFilter::interceptRequest(QWebEngineUrlRequestInfo &info)
{
    const QUrl url = info.requestUrl();
    const bool get = info.requestMethod() == "GET";
    if (get && info.resourceType() == QWebEngineUrlRequestInfo::ResourceTypeMainFrame &&
        pagerequests::pageNumberOf(url) == m_number)
        return;
    if (get && info.resourceType() == QWebEngineUrlRequestInfo::ResourceTypeImage &&
        pagerequests::pictureIndexOf(url, m_pictureKey))
        return;
    const bool assetKind = info.resourceType() == QWebEngineUrlRequestInfo::ResourceTypeScript ||
                           info.resourceType() == QWebEngineUrlRequestInfo::ResourceTypeStylesheet;
    if (get && assetKind) {
        if (url.scheme() == QLatin1StringView(pagerequests::assetScheme))
            return;
        const QUrl asset = pagerequests::assetFor(url);
        if (!asset.isEmpty()) {
            info.redirect(asset);
            return;
        }
    }
    info.block(true);
}

void PageBytes::setPage(PageSurface::LoadId load, const PageContent &page)
{
    m_load = load;
    m_page = page;
    m_page.html.replace("<html", "<html data-load=\"" + QByteArray::number(load) + '"');
}

void PageBytes::beginNavigation(quint64 number)
{
    m_number = number;
    m_servedLoad = 0;
}

void PageBytes::showPlain()
{
    // The renderer script looks for it.
    m_page.html.replace("<html", "<html data-plain");
}

void PageBytes::requestStarted(QWebEngineUrlRequestJob *job)
{
    const QUrl url = job->requestUrl();
    const bool get = job->requestMethod() == "GET";
    if (get && pagerequests::pageNumberOf(url) == m_number) {
        m_servedLoad = m_load;
        reply(job, "text/html", m_page.html);
        return;
    }
    const auto index = pagerequests::pictureIndexOf(url, m_page.pictureKey);
    if (const auto picture = m_page.pictures.constFind(index.value_or(-1));
        get && index && picture != m_page.pictures.constEnd()) {
        reply(job, picture->startsWith("\x89PNG") ? "image/png" : "image/jpeg", *picture);
        return;
    }
    job->fail(QWebEngineUrlRequestJob::RequestDenied);
}

void AssetBytes::requestStarted(QWebEngineUrlRequestJob *job)
{
    Q_EMIT requested();
    const QUrl url = job->requestUrl();
    for (const Stand &stand : stands) {
        if (job->requestMethod() == "GET" && url == assetUrl(stand.asset)) {
            reply(job, stand.mimeType, bytes(QString::fromLatin1(stand.asset)));
            return;
        }
    }
    job->fail(QWebEngineUrlRequestJob::RequestDenied);
}

QByteArray AssetBytes::bytes(const QString &name)
{
    const QString folder = QStringLiteral(":/quellora/page/");
    const QString scripts = QStringLiteral(":/quellora/page-scripts/");
    if (name == QLatin1StringView("page.js"))
        return resource(scripts + name);
    if (name == QLatin1StringView("math.js")) {
        if (m_typesetter.isEmpty())
            m_typesetter = mathScript();
        return m_typesetter;
    }
    if (name != QLatin1StringView("marked.js"))
        return resource(folder + name);
    if (m_renderer.isEmpty()) {
        m_renderer = resource(folder + name) + '\n' +
                     resource(folder + QStringLiteral("purify.min.js")) +
                     "\n(() => {\n'use strict';\n";
        for (const char *part : {"sanitizer.js", "markdown-blocks.js", "math.js", "footnotes.js",
                                 "streamed-answer.js"})
            m_renderer += resource(scripts + QLatin1StringView(part));
        m_renderer += "})();\n";
    }
    return m_renderer;
}

} // namespace quellora
