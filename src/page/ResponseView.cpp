#include "page/ResponseView.h"

#include "base/Log.h"
#include "page/PageScripts.h"

#include <QAccessible>
#include <QClipboard>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWebEngineProfile>
#include <QQuickWindow>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <utility>

void qml_register_types_Quellora_Page();

namespace quellora {

namespace {

/// How long the engine may take to request a page before the navigation is repeated.
constexpr std::chrono::milliseconds navigationPatience{300};
constexpr std::chrono::milliseconds maxNavigationPatience{4000};

/// How many pages in succession have one address, and so one process. The engine (Qt WebEngine 6.4)
/// keeps several KiB for each address until the program ends; on the other hand a process that
/// shows many pages holds the garbage of all, some 3 MiB each.
constexpr int pagesPerAddress = 32;

/// When abandoned objects are deleted after a load. The engine learns some time after it that the
/// nodes of the page before are gone; the pauses double.
constexpr std::chrono::milliseconds firstSweep{500};
constexpr std::chrono::milliseconds lastSweep{8000};

/// Deletes the plain objects below @p parent whose nodes in a page's accessibility tree are gone.
/// The engine (Qt WebEngine 6.4, and 6.9 still) creates one for each node while assistive
/// technology is connected, and never deletes it.
void deleteAbandoned(const QObject &parent)
{
    // A copy, because deletion changes the list. NOLINTNEXTLINE(*-unnecessary-copy-initialization)
    const QObjectList children = parent.children();
    for (QObject *child : children) {
        if (child->metaObject() != &QObject::staticMetaObject)
            continue;
        deleteAbandoned(*child);
        if (child->children().isEmpty() && !QAccessible::queryAccessibleInterface(child))
            delete child;
    }
}

} // namespace

ResponseView::ResponseView(QObject *parent) : PageSurface(parent)
{
    // Referenced here so that the linker keeps the module's registration.
    static const bool registered = (qml_register_types_Quellora_Page(), true);
    Q_UNUSED(registered)
    connect(&m_bridge, &PageBridge::posted, this, &ResponseView::onPosted);
    // A page that fetches its scripts has begun to run, even if it gets stuck in the first of them.
    connect(&m_assetBytes, &AssetBytes::requested, this, [this] { heard(0); });
    m_navigationWatch.setSingleShot(true);
    connect(&m_navigationWatch, &QTimer::timeout, this, &ResponseView::navigateAgain);
    m_sweep.setSingleShot(true);
    connect(&m_sweep, &QTimer::timeout, this, [this] {
        if (m_item)
            deleteAbandoned(*m_item);
        if (m_sweep.intervalAsDuration() < lastSweep)
            m_sweep.start(m_sweep.intervalAsDuration() * 2);
    });
}

ResponseView::~ResponseView()
{
    // Views must be destroyed before their profile.
    delete m_item;
    delete m_profile;
}

QObject *ResponseView::profile()
{
    if (!m_profile) {
        m_profile = new QQuickWebEngineProfile;
        m_profile->setOffTheRecord(true);
        m_profile->setHttpCacheType(QQuickWebEngineProfile::NoCache);
        m_profile->setPersistentCookiesPolicy(QQuickWebEngineProfile::NoPersistentCookies);
        m_profile->setUrlRequestInterceptor(&m_filter);
        m_profile->installUrlSchemeHandler(pagerequests::pageScheme.toByteArray(), &m_pageBytes);
        m_profile->installUrlSchemeHandler(pagerequests::assetScheme.toByteArray(), &m_assetBytes);
        QQmlEngine::setObjectOwnership(m_profile, QQmlEngine::CppOwnership);
    }
    return m_profile;
}

QVariantList ResponseView::userScripts() const
{
    return pagescripts::userScripts(m_isMotionReduced);
}

void ResponseView::setMotionReduced(bool isReduced)
{
    if (isReduced == m_isMotionReduced)
        return;
    m_isMotionReduced = isReduced;
    Q_EMIT userScriptsChanged();
    evaluate(pagescripts::motionScript(isReduced));
}

void ResponseView::setTextScale(double factor)
{
    if (factor == m_textScale)
        return;
    m_textScale = factor;
    Q_EMIT textScaleChanged();
}

void ResponseView::attachTo(QQuickItem *container)
{
    if (m_container == container)
        return;
    if (m_container)
        m_container->disconnect(this);
    m_container = container;
    if (!container) {
        if (m_item)
            m_item->setParentItem(nullptr);
        return;
    }
    connect(container, &QQuickItem::widthChanged, this, &ResponseView::fitIntoContainer);
    connect(container, &QQuickItem::heightChanged, this, &ResponseView::fitIntoContainer);
    if (QQmlEngine *engine = qmlEngine(container))
        createItem(*engine);
    fitIntoContainer();
}

void ResponseView::createItem(QQmlEngine &engine)
{
    if (m_component)
        return;
    m_component = std::make_unique<QQmlComponent>(
        &engine, QUrl(QStringLiteral("qrc:/qt/qml/Quellora/Page/ResponseWebView.qml")),
        QQmlComponent::Asynchronous);
    if (!m_component->isLoading()) {
        finishCreation();
        return;
    }
    connect(m_component.get(), &QQmlComponent::statusChanged, this, &ResponseView::finishCreation);
}

void ResponseView::finishCreation()
{
    QObject *created = nullptr;
    if (m_component->isReady())
        created = m_component->createWithInitialProperties(
            {{QStringLiteral("host"), QVariant::fromValue(this)}});
    m_item = qobject_cast<QQuickItem *>(created);
    if (!m_item)
        qFatal("the response view cannot be created: %s",
               qUtf8Printable(m_component->errorString()));
    QQmlEngine::setObjectOwnership(m_item, QQmlEngine::CppOwnership);
    // The item is also destroyed with its container or QML engine.
    connect(m_item, &QObject::destroyed, this, [this] {
        m_item = nullptr;
        m_component.reset();
    });
    connect(m_item, &QQuickItem::visibleChanged, this, &ResponseView::watch);
    connect(m_item, &QQuickItem::windowChanged, this, &ResponseView::watchWindow);
    watchWindow(m_item->window());
    fitIntoContainer();
    Q_EMIT engineStarted();
    if (m_currentLoad != 0)
        navigate();
}

void ResponseView::watchWindow(QQuickWindow *window)
{
    if (!window)
        return;
    connect(window, &QWindow::visibleChanged, this, &ResponseView::watch, Qt::UniqueConnection);
    watch();
}

void ResponseView::fitIntoContainer()
{
    if (!m_item || !m_container)
        return;
    m_item->setParentItem(m_container);
    m_item->setSize(m_container->size());
}

void ResponseView::startLoad(LoadId id, const PageContent &page)
{
    m_currentLoad = id;
    m_loadReported = false;
    m_pageBytes.setPage(id, page);
    m_filter.setPictureKey(page.pictureKey);
    m_navigationWatch.setInterval(navigationPatience);
    if (!m_item)
        return;
    // A navigation that has not asked for its page yet is served this one.
    if (m_underWay == 0)
        navigate();
    else
        m_navigationWatch.start();
}

void ResponseView::navigate()
{
    // What is still reported on a navigation that is replaced must not be taken for this one's.
    const bool isAddressFree = m_underWay == 0;
    if (!isAddressFree || m_pagesAtAddress == pagesPerAddress) {
        ++m_pageNumber;
        m_pagesAtAddress = 0;
    }
    ++m_pagesAtAddress;
    m_underWay = m_currentLoad;
    m_filter.setPageNumber(m_pageNumber);
    m_pageBytes.beginNavigation(m_pageNumber);
    m_expectedNavigations.insert(m_pageNumber);
    Q_EMIT navigateTo(pagerequests::pageUrl(m_pageNumber));
    m_navigationWatch.start();
}

/// Repeats a navigation that the engine has not reported on in time and may have dropped.
void ResponseView::navigateAgain()
{
    if (!m_item || m_loadReported)
        return;
    const bool isOwnPageArriving = m_underWay != 0 && m_pageBytes.servedLoad() == m_currentLoad;
    const auto patience = m_navigationWatch.intervalAsDuration();
    // A busy machine or a large page may just take longer.
    m_navigationWatch.setInterval(std::min(patience * 2, maxNavigationPatience));
    if (isOwnPageArriving && patience < maxNavigationPatience)
        m_navigationWatch.start();
    else
        navigate();
}

/// Whether a report on that address is on the navigation under way.
bool ResponseView::isUnderWay(const QUrl &url) const
{
    return m_underWay != 0 && pagerequests::pageNumberOf(url) == m_pageNumber;
}

void ResponseView::navigationEnded()
{
    m_underWay = 0;
    // Pages in quick succession do not put it off.
    if (!m_sweep.isActive() || m_sweep.intervalAsDuration() > firstSweep)
        m_sweep.start(firstSweep);
    if (m_loadReported) {
        m_navigationWatch.stop();
        return;
    }
    // Not within the engine's own notification.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_item && m_underWay == 0 && !m_loadReported)
                navigate();
        },
        Qt::QueuedConnection);
}

bool ResponseView::mayNavigate(const QUrl &url)
{
    // A navigation that has been replaced is accepted as well, because refusing it would stop its
    // replacement; it is served no bytes.
    const auto number = pagerequests::pageNumberOf(url);
    return number && m_expectedNavigations.remove(*number);
}

void ResponseView::runScript(const QString &script, quint64 token)
{
    if (m_item)
        Q_EMIT scriptRequested(script, static_cast<double>(token));
    else
        scriptDone(token);
}

void ResponseView::onLoadSucceeded(const QUrl &url)
{
    const LoadId loaded = m_pageBytes.servedLoad();
    if (!isUnderWay(url) || loaded == 0)
        return;
    const bool isNews = loaded == m_currentLoad && !std::exchange(m_loadReported, true);
    navigationEnded();
    if (isNews)
        Q_EMIT loadFinished(m_currentLoad);
}

void ResponseView::onLoadFailed(const QUrl &url, const QString &description)
{
    if (!isUnderWay(url))
        return;
    const LoadId served = m_pageBytes.servedLoad();
    const LoadId failed = served == 0 ? m_underWay : served;
    const bool isNews = failed == m_currentLoad && !std::exchange(m_loadReported, true);
    navigationEnded();
    if (isNews)
        Q_EMIT loadFailed(m_currentLoad, description, served == 0);
}

void ResponseView::onLoadStopped(const QUrl &url)
{
    if (isUnderWay(url))
        navigationEnded();
}

void ResponseView::onRenderProcessTerminated(int status, int exitCode)
{
    m_navigationWatch.stop();
    m_underWay = 0;
    // The next process has no garbage yet.
    m_pagesAtAddress = 0;
    renderProcessEnded(QStringLiteral("status %1, code %2").arg(status).arg(exitCode));
}

void ResponseView::ask(quint64 number)
{
    if (m_item)
        Q_EMIT asked(static_cast<double>(number));
}

bool ResponseView::isSeen() const
{
    return m_item && m_item->isVisible() && m_item->window() && m_item->window()->isVisible();
}

void ResponseView::endProcess()
{
    const qint64 pid = m_item ? m_item->property("renderProcessPid").toLongLong() : 0;
    // Stopped processes end as well.
    if (pid > 1)
        ::kill(static_cast<pid_t>(pid), SIGKILL);
}

void ResponseView::restartLoad(bool asText)
{
    if (asText)
        m_pageBytes.showPlain();
    m_loadReported = false;
    m_underWay = 0;
    m_navigationWatch.setInterval(navigationPatience);
    if (m_item)
        navigate();
}

void ResponseView::onPosted(const QString &name, const QVariant &body)
{
    if (!admitsMessage())
        return;
    if (name == QLatin1StringView("link"))
        Q_EMIT linkActivated(body.toString());
    else if (name == QLatin1StringView("copy"))
        QGuiApplication::clipboard()->setText(body.toString());
    else
        Q_EMIT message(name, body);
}

} // namespace quellora
