#pragma once

#include "page/PageSurface.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QUrl>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlSchemeHandler>

#include <optional>

namespace quellora {

namespace pagerequests {

inline constexpr QByteArrayView pageScheme = "quellora-page";
inline constexpr QByteArrayView assetScheme = "quellora-asset";

/// Address under which a page is loaded.
QUrl pageUrl(quint64 loadId);
/// Reverse of pageUrl(), ignoring a fragment; nothing for any other address.
std::optional<quint64> loadIdOf(const QUrl &url);
/// Address of a picture of the page with that key.
QString pictureAddress(const QByteArray &key, qint64 index);
/// Reverse of pictureAddress(); nothing for any other address.
std::optional<qint64> pictureIndexOf(const QUrl &url, const QByteArray &key);
/// The bundled asset that stands in for an address named by the pages; empty for any other.
QUrl assetFor(const QUrl &address);

} // namespace pagerequests

/// Lets the current page load itself, its pictures and the bundled assets, and refuses every other
/// request.
class PageRequestFilter : public QWebEngineUrlRequestInterceptor
{
    Q_OBJECT

public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void setCurrentLoad(quint64 loadId, const QByteArray &pictureKey)
    {
        m_currentLoad = loadId;
        m_pictureKey = pictureKey;
    }
    void interceptRequest(QWebEngineUrlRequestInfo &info) override;

private:
    quint64 m_currentLoad = 0;
    QByteArray m_pictureKey;
};

/// Serves the current page and its pictures. Keeps them, so that the page can be loaded again.
class PageBytes : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    void setPage(quint64 loadId, const PageContent &page);
    /// The page is about to be loaded again.
    void rewind() { m_served = false; }
    /// The page shows its answers as text from now on.
    void showPlain();
    /// Whether the engine has asked for the current page since it was set.
    bool wasServed() const { return m_served; }
    void requestStarted(QWebEngineUrlRequestJob *job) override;

private:
    quint64 m_loadId = 0;
    PageContent m_page;
    bool m_served = false;
};

/// Serves the bundled page assets.
class AssetBytes : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    void requestStarted(QWebEngineUrlRequestJob *job) override;

Q_SIGNALS:
    /// A page wants an asset.
    void requested();

private:
    QByteArray bytes(const QString &name);

    /// Markdown renderer, sanitizer library and our own scripts as one, read on first use.
    QByteArray m_renderer;
    /// The typesetter, its fonts and rules as one, read on first use.
    QByteArray m_typesetter;
};

} // namespace quellora
