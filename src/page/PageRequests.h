#pragma once

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
/// The bundled asset that stands in for an address named by the pages; empty for any other.
QUrl assetFor(const QUrl &address);

} // namespace pagerequests

/// Lets the page shown load itself and the bundled assets, and refuses every other request.
class PageRequestFilter : public QWebEngineUrlRequestInterceptor
{
    Q_OBJECT

public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void setCurrentLoad(quint64 loadId) { m_currentLoad = loadId; }
    void interceptRequest(QWebEngineUrlRequestInfo &info) override;

private:
    quint64 m_currentLoad = 0;
};

/// Serves the bytes of the current page. Keeps them, so that the page can be loaded again.
class PageBytes : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    void setPage(quint64 loadId, const QByteArray &html);
    /// The page is about to be loaded again.
    void rewind() { m_served = false; }
    /// Whether the engine has asked for the current page since it was set.
    bool wasServed() const { return m_served; }
    void requestStarted(QWebEngineUrlRequestJob *job) override;

private:
    quint64 m_loadId = 0;
    QByteArray m_html;
    bool m_served = false;
};

/// Serves the bundled page assets.
class AssetBytes : public QWebEngineUrlSchemeHandler
{
    Q_OBJECT

public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    void requestStarted(QWebEngineUrlRequestJob *job) override;

private:
    QByteArray bytes(const QString &name);

    /// Renderer, sanitiser and what joins them, put together on first use.
    QByteArray m_renderer;
};

} // namespace quellora
