#pragma once

#include "page/PageRequests.h"
#include "page/PageSurface.h"

#include <QPointer>
#include <QQuickItem>
#include <QSet>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <memory>

class QQmlComponent;
class QQmlEngine;
class QQuickWebEngineProfile;
class QQuickWindow;

namespace quellora {

/// The only part of the host that the bridge script in the page can reach: one call that takes a
/// message. Everything passed to it is untrusted.
class PageBridge : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    Q_INVOKABLE void post(const QString &name, const QVariant &body) { Q_EMIT posted(name, body); }

Q_SIGNALS:
    void posted(const QString &name, const QVariant &body);
};

/// The page surface implemented with Qt WebEngine Quick. Main thread only.
///
/// The engine item is created when the first QML ResponseView item has this object as its host, and
/// is shown inside it. Loads requested before that wait for it. prepareWebEngine() must be called
/// before the application object is created. This object must be destroyed before the QML engine
/// that shows it.
class ResponseView : public PageSurface
{
    Q_OBJECT
    QML_NAMED_ELEMENT(ResponseHost)
    QML_UNCREATABLE("Created by the overlay")
    Q_PROPERTY(QObject *profile READ profile CONSTANT)
    Q_PROPERTY(QObject *bridge READ bridge CONSTANT)
    Q_PROPERTY(double textScale READ textScale WRITE setTextScale NOTIFY textScaleChanged)

public:
    explicit ResponseView(QObject *parent = nullptr);
    ~ResponseView() override;

    /// Shows the page inside @p container, filling it.
    Q_INVOKABLE void attachTo(QQuickItem *container);
    /// The engine's item; null until it has been created.
    QQuickItem *item() const { return m_item; }

    QObject *profile();
    QObject *bridge() { return &m_bridge; }
    /// Scripts that run in every page, as the engine's script collection takes them.
    Q_INVOKABLE QVariantList userScripts() const;
    /// Turns animations off or on, in this page and in later ones.
    Q_INVOKABLE void setMotionReduced(bool isReduced);
    /// Factor by which this page and later ones are enlarged or reduced.
    double textScale() const { return m_textScale; }
    void setTextScale(double factor);

    /// Called by the engine's item.
    Q_INVOKABLE bool mayNavigate(const QUrl &url);
    Q_INVOKABLE void onLoadSucceeded(const QUrl &url);
    Q_INVOKABLE void onLoadFailed(const QUrl &url, const QString &description);
    Q_INVOKABLE void onLoadStopped(const QUrl &url);
    Q_INVOKABLE void onScriptDone(double token) { scriptDone(static_cast<quint64>(token)); }
    Q_INVOKABLE void onHeard(double number) { heard(static_cast<quint64>(number)); }
    Q_INVOKABLE void onRenderProcessTerminated(int status, int exitCode);

Q_SIGNALS:
    /// The engine's item has been created.
    void engineStarted();
    void userScriptsChanged();
    void textScaleChanged();
    /// Requests to the engine's item.
    void navigateTo(const QUrl &url);
    void scriptRequested(const QString &script, double token);
    void bridgeScriptRequested(const QString &script);
    void asked(double number);

protected:
    void startLoad(LoadId id, const PageContent &page) override;
    void runScript(const QString &script, quint64 token) override;
    void runBridgeScript(const QString &script) override { Q_EMIT bridgeScriptRequested(script); }
    void restartLoad(bool asText) override;
    void ask(quint64 number) override;
    bool isSeen() const override;
    void endProcess() override;

private:
    void createItem(QQmlEngine &engine);
    void finishCreation();
    void watchWindow(QQuickWindow *window);
    void fitIntoContainer();
    void navigate();
    void navigateAgain();
    bool isUnderWay(const QUrl &url) const;
    void navigationEnded();
    void onPosted(const QString &name, const QVariant &body);

    PageBridge m_bridge;
    PageRequestFilter m_filter;
    PageBytes m_pageBytes;
    AssetBytes m_assetBytes;
    QQuickWebEngineProfile *m_profile = nullptr;
    std::unique_ptr<QQmlComponent> m_component;
    QQuickItem *m_item = nullptr;
    QPointer<QQuickItem> m_container;
    LoadId m_currentLoad = 0;
    /// Of the page's address, and how many pages it has been given to.
    quint64 m_pageNumber = 1;
    int m_pagesAtAddress = 0;
    /// Runs from a navigation until the engine asks for the page.
    QTimer m_navigationWatch;
    /// The load for which the navigation began that the engine has not reported on; 0 if there is
    /// none. The next one waits for it, because the engine can lose a page that replaces another
    /// one while it loads.
    LoadId m_underWay = 0;
    /// Navigations of ours that the engine has not announced yet.
    QSet<quint64> m_expectedNavigations;
    bool m_loadReported = false;
    /// Runs after a navigation.
    QTimer m_sweep;
    bool m_isMotionReduced = false;
    double m_textScale = 1;
};

} // namespace quellora
