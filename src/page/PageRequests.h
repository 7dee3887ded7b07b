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

/// Address under which a page is loaded. @p number is not 0.
QUrl pageUrl(quint64 number);
/// Reverse of pageUrl(), ignoring a fragment; nothing for any other address.
std::optional<quint64> pageNumberOf(const QUrl &url);
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
    void setPageNumber(quint64 number) { m_number = number; }
    void setPictureKey(const QByteArray &key) { m_pictureKey = key; }
    void interceptRequest(QWebEngineUrlRequestInfo &info) override;

private:
    quint64 m_number = 0;
    QByteArray m_pictureKey;
};

/// Serves the current page and its pictures. Keeps them, so that the page can be loaded again.
class PageBytes : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    /// Serves @p page from now on, whichever page was asked for first. @p load is not 0; the page
    /// has it as data-load of its first element, for what it posts.
    void setPage(PageSurface::LoadId load, const PageContent &page);
    /// A navigation to the address with that number begins.
    void beginNavigation(quint64 number);
    /// The page shows its answers as text from now on.
    void showPlain();
    /// The load whose page the latest navigation was served; 0 before.
    PageSurface::LoadId servedLoad() const { return m_servedLoad; }
    void requestStarted(QWebEngineUrlRequestJob *job) override;

private:
    PageSurface::LoadId m_load = 0;
    PageContent m_page;
    quint64 m_number = 0;
    PageSurface::LoadId m_servedLoad = 0;
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
