#include "page/WebEngineSetup.h"

#include "base/Log.h"
#include "page/PageRequests.h"

#include <QByteArray>
#include <QWebEngineUrlScheme>
#include <QtWebEngineQuick/QtWebEngineQuick>

#include <unistd.h>

namespace quellora {

namespace {

/// Second line of defence behind the request filter, for what does not pass through it: peer
/// connections, name look-ups ahead of use, the engine's own services.
constexpr const char *networkSwitches =
    "--force-webrtc-ip-handling-policy=disable_non_proxied_udp "
    "--proxy-server=socks5://127.0.0.1:1 --proxy-bypass-list=<-loopback> "
    "--host-resolver-rules=\"MAP * ~NOTFOUND\" --disable-background-networking";

void registerSchemes()
{
    // No access: a page's origin is opaque, as for a page loaded without a base address.
    QWebEngineUrlScheme page(pagerequests::pageScheme.toByteArray());
    page.setSyntax(QWebEngineUrlScheme::Syntax::Path);
    page.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::NoAccessAllowed);
    QWebEngineUrlScheme::registerScheme(page);

    QWebEngineUrlScheme asset(pagerequests::assetScheme.toByteArray());
    asset.setSyntax(QWebEngineUrlScheme::Syntax::HostAndPort);
    asset.setDefaultPort(1);
    asset.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::CorsEnabled);
    QWebEngineUrlScheme::registerScheme(asset);
}

} // namespace

void prepareWebEngine()
{
    registerSchemes();

    QByteArray flags = qgetenv("QTWEBENGINE_CHROMIUM_FLAGS");
    if (!flags.isEmpty())
        flags += ' ';
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", flags + networkSwitches);

    if (::geteuid() == 0) {
        // The sandbox cannot start for root.
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
        Log::event(QStringLiteral("[ResponseView] WARNING: Running as root, the page engine runs "
                                  "without its sandbox"));
    }
    QtWebEngineQuick::initialize();
}

} // namespace quellora
