import QtQuick
import QtWebChannel
import QtWebEngine
import Quellora.Page

/// The sandboxed web view: shows the host's pages and rejects all other navigation.
WebEngineView {
    id: view

    required property ResponseHost host

    profile: host.profile
    backgroundColor: "transparent"
    // The page's lengths are all in pixels, so the whole page follows the text size.
    zoomFactor: host.textScale
    Accessible.name: qsTr("Response")

    settings.accelerated2dCanvasEnabled: false
    settings.allowGeolocationOnInsecureOrigins: false
    settings.allowRunningInsecureContent: false
    settings.allowWindowActivationFromJavaScript: false
    settings.autoLoadIconsForPage: false
    settings.dnsPrefetchEnabled: false
    settings.errorPageEnabled: false
    settings.focusOnNavigationEnabled: false
    settings.fullScreenSupportEnabled: false
    settings.hyperlinkAuditingEnabled: false
    settings.javascriptCanAccessClipboard: false
    settings.javascriptCanOpenWindows: false
    settings.javascriptCanPaste: false
    settings.localContentCanAccessFileUrls: false
    settings.localContentCanAccessRemoteUrls: false
    settings.localStorageEnabled: false
    settings.navigateOnDropEnabled: false
    settings.pdfViewerEnabled: false
    settings.playbackRequiresUserGesture: true
    settings.pluginsEnabled: false
    settings.screenCaptureEnabled: false
    settings.touchIconsEnabled: false
    settings.unknownUrlSchemePolicy: WebEngineSettings.DisallowUnknownUrlSchemes
    settings.webGLEnabled: false
    settings.webRTCPublicInterfacesOnly: true

    // In the bridge script's world only: page scripts cannot access the host.
    webChannelWorld: WebEngineScript.ApplicationWorld
    webChannel: WebChannel {
        id: channel
    }

    Component.onCompleted: {
        channel.registerObject("bridge", host.bridge);
        view.userScripts.collection = host.userScripts();
    }

    Connections {
        target: view.host

        function onUserScriptsChanged() {
            view.userScripts.collection = view.host.userScripts();
        }
        function onNavigateTo(url) {
            view.url = url;
        }
        function onBridgeScriptRequested(script) {
            view.runJavaScript(script, WebEngineScript.ApplicationWorld);
        }
        function onAsked(number) {
            view.runJavaScript("0", WebEngineScript.ApplicationWorld, () => view.host.onHeard(number));
        }
        function onScriptRequested(script, token) {
            if (token === 0)
                view.runJavaScript(script);
            else
                view.runJavaScript(script, () => view.host.onScriptDone(token));
        }
    }

    onNavigationRequested: request => {
        if (request.isMainFrame && view.host.mayNavigate(request.url))
            request.accept();
        else
            request.reject();
    }
    onLoadingChanged: info => {
        if (info.status === WebEngineView.LoadSucceededStatus)
            view.host.onLoadSucceeded(info.url);
        else if (info.status === WebEngineView.LoadFailedStatus)
            view.host.onLoadFailed(info.url, info.errorString);
        else if (info.status === WebEngineView.LoadStoppedStatus)
            view.host.onLoadStopped(info.url);
    }
    onRenderProcessTerminated: (status, exitCode) => view.host.onRenderProcessTerminated(status, exitCode)

    // No windows, dialogs or menus of the engine: they would open outside the panel.
    onContextMenuRequested: request => request.accepted = true
    onTooltipRequested: request => request.accepted = true
    onTouchSelectionMenuRequested: request => request.accepted = true
    onJavaScriptDialogRequested: request => {
        request.accepted = true;
        request.dialogReject();
    }
    onColorDialogRequested: request => {
        request.accepted = true;
        request.dialogReject();
    }
    onFileDialogRequested: request => {
        request.accepted = true;
        request.dialogReject();
    }
    onAuthenticationDialogRequested: request => {
        request.accepted = true;
        request.dialogReject();
    }
    onFeaturePermissionRequested: (origin, feature) => view.grantFeaturePermission(origin, feature, false)
    onFullScreenRequested: request => request.reject()
    onQuotaRequested: request => request.reject()
    onRegisterProtocolHandlerRequested: request => request.reject()
    onFileSystemAccessRequested: request => request.reject()
    onCertificateError: error => error.rejectCertificate()
    onSelectClientCertificate: selection => selection.selectNone()
    onNewWindowRequested: request => {}
    onWindowCloseRequested: {}
    // Console messages may contain page content, so they are not logged.
    onJavaScriptConsoleMessage: (level, message, line, source) => {}
}
