#include "page/ResponseDisplay.h"

#include "base/Log.h"
#include "base/Text.h"
#include "page/PageRequests.h"
#include "platform/Platform.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace quellora {

namespace {

/// The end of a page counts as visible within this distance, in pixels.
constexpr double endMargin = 4;
constexpr QLatin1StringView triggerLine("[OverlayWindowController] Triggering WebView load");
constexpr QLatin1StringView
    triggerShellLine("[OverlayWindowController] Triggering streaming shell WebView load");

PillAlphaThrottle::Nanoseconds monotonicNow()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// A page message's body for the log, on one line and bounded: its content is not ours.
QString bodyForLog(const QVariant &body)
{
    constexpr qsizetype limit = 500;
    QString text;
    if (body.typeId() == QMetaType::QString) {
        text = body.toString();
    } else {
        const QJsonArray wrapped{QJsonValue::fromVariant(body)};
        text = QString::fromUtf8(QJsonDocument(wrapped).toJson(QJsonDocument::Compact));
        text = text.mid(1, text.size() - 2);
    }
    if (text.size() > limit)
        text = text.left(limit) + QChar(0x2026);
    for (QChar &c : text) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    }
    return text;
}

void logMalformed(const QString &name, const QVariant &body)
{
    Log::event(QStringLiteral("[OverlayWindowController] ERROR: Received malformed %1 message: ")
                   .arg(name) +
               bodyForLog(body));
}

/// A finite number out of a page message.
std::optional<double> finiteNumber(const QVariantMap &map, const QString &key)
{
    const QVariant value = map.value(key);
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        break;
    default:
        return std::nullopt;
    }
    const double number = value.toDouble();
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

/// A whole number out of a page message.
std::optional<qint64> wholeNumber(const QVariantMap &map, const QString &key)
{
    constexpr double limit = 1LL << 53;
    const auto number = finiteNumber(map, key);
    return number && std::abs(*number) < limit && std::trunc(*number) == *number
               ? std::optional(static_cast<qint64>(*number))
               : std::nullopt;
}

/// An id out of a page message.
std::optional<QUuid> wellFormedId(const QVariant &value)
{
    static const QRegularExpression hyphenated(QStringLiteral(
        "\\A[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}\\z"));
    const QString text = value.toString();
    return value.typeId() == QMetaType::QString && hyphenated.match(text).hasMatch()
               ? std::optional(QUuid::fromString(text))
               : std::nullopt;
}

QByteArray randomKey()
{
    std::array<quint32, 4> words = {};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return QByteArray(reinterpret_cast<const char *>(words.data()), sizeof words).toHex();
}

bool looksAlike(const responsepage::PageAppearance &a, const responsepage::PageAppearance &b)
{
    return a.theme == b.theme && a.textColorHex == b.textColorHex;
}

} // namespace

ResponseDisplay::ResponseDisplay(PageSurface &surface, Workspace &workspace,
                                 const QString &temporaryDirectory, QObject *parent)
    : ResponseDisplay(surface, workspace, temporaryDirectory, Timing{monotonicNow}, parent)
{}

ResponseDisplay::ResponseDisplay(PageSurface &surface, Workspace &workspace,
                                 const QString &temporaryDirectory, Timing timing, QObject *parent)
    : QObject(parent)
    , m_surface(surface)
    , m_workspace(workspace)
    , m_files(std::make_shared<PreviewFiles>(temporaryDirectory))
    , m_pillAlphaThrottle(
          std::move(timing.clock),
          [this](std::optional<PillAlphaThrottle::Nanoseconds> delay) {
              if (delay)
                  m_pillAlphaTimer.start(std::chrono::ceil<std::chrono::milliseconds>(*delay));
              else
                  m_pillAlphaTimer.stop();
          },
          [this] { pushPillAlphaLive(); })
{
    m_builder.setMaxThreadCount(1);
    m_builder.setExpiryTimeout(5000);
    m_pillAlphaTimer.setSingleShot(true);
    m_pillAlphaTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_pillAlphaTimer, &QTimer::timeout, this, [this] { m_pillAlphaThrottle.fire(); });
    connect(&m_surface, &PageSurface::loadFinished, this, &ResponseDisplay::onLoadFinished);
    connect(&m_surface, &PageSurface::loadFailed, this,
            [](PageSurface::LoadId, const QString &description, bool provisional) {
                Log::event((provisional ? QStringLiteral("[OverlayWindowController] ERROR: WebView "
                                                         "provisional navigation failed: ")
                                        : QStringLiteral("[OverlayWindowController] ERROR: WebView "
                                                         "navigation failed: ")) +
                           description);
            });
    connect(&m_surface, &PageSurface::message, this, &ResponseDisplay::onMessage);
    connect(&m_surface, &PageSurface::linkActivated, this, &ResponseDisplay::onLinkActivated);
}

ResponseDisplay::~ResponseDisplay()
{
    removeAllPreviews();
}

void ResponseDisplay::removePreviews(const QSet<QUuid> &threads)
{
    m_builder.start([files = m_files, threads] {
        for (const QUuid &id : threads)
            files->removeThread(id);
    });
}

void ResponseDisplay::removePreview(const QUuid &threadId, qint64 index)
{
    m_builder.start(
        [files = m_files, threadId, index] { files->removeScreenshot(threadId, index); });
}

void ResponseDisplay::removeAllPreviews()
{
    m_builder.start([files = m_files] { files->removeAll(); });
    m_builder.waitForDone();
}

bool ResponseDisplay::showsScreenshot(const QUuid &threadId, qint64 index) const
{
    return std::any_of(m_pictures.begin(), m_pictures.end(), [&](const Pictures &pictures) {
        return pictures.threadId == threadId && pictures.images.contains(index);
    });
}

void ResponseDisplay::setResponseTextColorHex(const std::optional<QString> &color)
{
    // The text goes into style sheets and scripts, so nothing but a hex colour may pass.
    m_appearance.textColorHex = color && isHexColor(*color) ? color : std::nullopt;
}

ResponseDisplay::PageId ResponseDisplay::loadContent(const QString &markdown)
{
    Log::event(QStringLiteral("[OverlayWindowController] loadContent() — building HTML for %1 "
                              "char payload")
                   .arg(characterCount(markdown)));
    return show(
        markdown.trimmed().isEmpty() ? Content::Hint : Content::Message, {},
        [markdown](const auto &appearance, const auto &) {
            return responsepage::singleAnswerPage(markdown, appearance);
        },
        triggerLine);
}

ResponseDisplay::PageId ResponseDisplay::renderThread(const CaptureSession &session,
                                                      const std::function<void()> &keepPage)
{
    Log::event(QStringLiteral("[OverlayWindowController] renderThread() — %1 notes, %2 turns")
                   .arg(session.notes.size())
                   .arg(session.turns.size()));
    if (keepPage) {
        QMetaObject::invokeMethod(
            this,
            [this, page = m_latestPage, keepPage] {
                if (page != m_latestPage)
                    return;
                Log::event(triggerLine);
                keepPage();
            },
            Qt::QueuedConnection);
        return m_latestPage;
    }
    if (session.notes.isEmpty() && session.turns.isEmpty()) {
        if (session.screenshots.isEmpty()) {
            Log::event(QStringLiteral("[OverlayWindowController] Content cleared"));
            return loadContent(QString());
        }
        return show(
            Content::Thread, session.id,
            [session](const auto &appearance, const auto &address) {
                return responsepage::screenshotOnlyPage(session, appearance, address);
            },
            triggerLine);
    }
    return show(
        Content::Thread, session.id,
        [session](const auto &appearance, const auto &address) {
            return responsepage::threadPage(session, appearance, address);
        },
        triggerLine);
}

ResponseDisplay::PageId
ResponseDisplay::loadStreamingShell(const std::optional<CaptureSession> &session,
                                    const QString &prompt, const QDateTime &queryStart,
                                    const std::optional<CaptureSession::Screenshot> &screenshot,
                                    const QUuid &replaced)
{
    return show(
        Content::Thread, session ? session->id : QUuid(),
        [=](const auto &appearance, const auto &address) {
            return responsepage::streamingShellPage(session, prompt, queryStart, screenshot,
                                                    appearance, address, replaced);
        },
        triggerShellLine);
}

void ResponseDisplay::logPageFinished()
{
    Log::event(QStringLiteral("[OverlayWindowController] WebView finished loading"));
}

ResponseDisplay::PageId ResponseDisplay::show(Content content, const QUuid &threadId, Build build,
                                              const QString &logLine)
{
    const PageId page = ++m_latestPage;
    if (std::exchange(m_content, content) != content)
        Q_EMIT contentChanged();
    m_builder.start(
        [this, page, threadId, build = std::move(build), appearance = m_appearance, logLine] {
            PageContent built;
            built.pictureKey = randomKey();
            built.html = build(appearance, [&built](const CaptureSession::Screenshot &screenshot) {
                built.pictures.insert(screenshot.index, screenshot.imageData);
                return pagerequests::pictureAddress(built.pictureKey, screenshot.index);
            });
            QMetaObject::invokeMethod(
                this,
                [this, page, threadId, built = std::move(built), appearance, logLine] {
                    onBuilt(page, threadId, built, appearance, logLine);
                },
                Qt::QueuedConnection);
        });
    return page;
}

void ResponseDisplay::onBuilt(PageId page, const QUuid &threadId, const PageContent &built,
                              const responsepage::PageAppearance &appearance,
                              const QString &logLine)
{
    if (page != m_latestPage)
        return;
    m_builtAppearance = appearance;
    m_loadingPage = page;
    m_loadId = m_surface.load(built, logLine);
    // The page before it stays on show for some time.
    m_pictures.insert(m_loadId, {threadId, built.pictures});
}

void ResponseDisplay::onLoadFinished(PageSurface::LoadId id)
{
    logPageFinished();
    if (id != m_loadId)
        return;
    m_pictures.removeIf([id](auto entry) { return entry.key() != id; });
    // What changed while the page was on its way reached the page before it. A page that is loaded
    // again after its process ended has missed everything since it was built.
    if (!looksAlike(m_builtAppearance, m_appearance))
        applyTheme();
    if (m_builtAppearance.alpha != m_appearance.alpha)
        pushPillAlphaLive();
    if (m_builtAppearance.captureHotkey != m_appearance.captureHotkey ||
        m_builtAppearance.answererName != m_appearance.answererName)
        pushHint();
    if (m_findText) {
        const bool isNewest = m_loadingPage == m_latestPage;
        const QUuid entry = isNewest ? std::exchange(m_findEntry, {}) : QUuid();
        pushFind(!entry.isNull(), entry);
    }
    Q_EMIT pageFinished(m_loadingPage);
}

void ResponseDisplay::applyTheme()
{
    m_surface.evaluate(responsepage::themeScript(m_appearance));
}

void ResponseDisplay::pushHint()
{
    m_surface.evaluate(responsepage::hintScript(m_appearance));
}

void ResponseDisplay::pushPillAlphaLive()
{
    m_surface.evaluate(responsepage::pillAlphaScript(m_appearance.alpha));
}

void ResponseDisplay::pushPillAlphaLiveThrottled()
{
    m_pillAlphaThrottle.request();
}

void ResponseDisplay::scrollUp()
{
    m_surface.evaluate(responsepage::scrollByScript(-60));
}

void ResponseDisplay::scrollDown()
{
    m_surface.evaluate(responsepage::scrollByScript(60));
}

void ResponseDisplay::scrollByPixels(double pixels)
{
    m_surface.evaluate(responsepage::scrollByScript(pixels));
}

void ResponseDisplay::scrollToFraction(double fraction)
{
    m_surface.evaluate(responsepage::scrollToFractionScript(fraction));
}

void ResponseDisplay::onMessage(const QString &name, const QVariant &body)
{
    if (name == QLatin1StringView("scrollPosition"))
        onScrollPosition(body);
    else if (name == QLatin1StringView("openScreenshot"))
        onOpenScreenshot(body);
    else if (name == QLatin1StringView("noteDelete"))
        onNoteDelete(body);
    else if (name == QLatin1StringView("showVersion"))
        onShowVersion(body);
    else if (name == QLatin1StringView("findResult"))
        onFindResult(body);
}

void ResponseDisplay::onScrollPosition(const QVariant &body)
{
    const QVariantMap map = body.toMap();
    const auto top = finiteNumber(map, QStringLiteral("scrollTop"));
    const auto height = finiteNumber(map, QStringLiteral("scrollHeight"));
    const auto visible = finiteNumber(map, QStringLiteral("clientHeight"));
    if (!top || !height || !visible) {
        logMalformed(QStringLiteral("scrollPosition"), body);
        return;
    }
    const double extent = *height - *visible;
    const double fraction = std::clamp(extent >= 1 ? *top / extent : *top, 0.0, 1.0);
    const double thumbRatio = std::clamp(*visible / std::max(*height, 1.0), 0.0, 1.0);
    Q_EMIT scrollPositionChanged(*visible < *height, thumbRatio, fraction);
    Q_EMIT endVisibilityChanged(extent - *top <= endMargin);
}

void ResponseDisplay::onOpenScreenshot(const QVariant &body)
{
    const QVariantMap map = body.toMap();
    const auto page = wholeNumber(map, QStringLiteral("page"));
    const auto index = wholeNumber(map, QStringLiteral("index"));
    const Pictures pictures = m_pictures.value(static_cast<PageSurface::LoadId>(page.value_or(0)));
    // Any number may come: only a picture that this very page shows is opened.
    if (!index || !pictures.images.contains(*index)) {
        logMalformed(QStringLiteral("openScreenshot"), body);
        return;
    }
    const QString path = m_files->pathOf(pictures.threadId, *index);
    m_builder.start([this, files = m_files, path, image = pictures.images.value(*index)] {
        const bool isThere = files->write(path, image);
        QMetaObject::invokeMethod(
            this,
            [this, path, isThere] {
                if (isThere)
                    m_workspace.openFile(path);
                else
                    Q_EMIT previewFailed();
            },
            Qt::QueuedConnection);
    });
}

void ResponseDisplay::onNoteDelete(const QVariant &body)
{
    const auto id = wellFormedId(body);
    if (id)
        Q_EMIT noteDeleteRequested(*id);
    else
        logMalformed(QStringLiteral("noteDelete"), body);
}

void ResponseDisplay::onShowVersion(const QVariant &body)
{
    const QVariantMap map = body.toMap();
    const auto turn = wellFormedId(map.value(QStringLiteral("turn")));
    const auto position = wholeNumber(map, QStringLiteral("version"));
    if (turn && position)
        Q_EMIT versionRequested(*turn, *position);
    else
        logMalformed(QStringLiteral("showVersion"), body);
}

void ResponseDisplay::find(const QString &text)
{
    m_findText = text;
    m_findEntry = {};
    pushFind(true);
}

void ResponseDisplay::findInNextPage(const QString &text, const QUuid &entry)
{
    m_findText = text;
    m_findEntry = entry;
}

void ResponseDisplay::pushFind(bool isScrolledTo, const QUuid &entry)
{
    QJsonArray arguments{*m_findText, isScrolledTo};
    if (!entry.isNull())
        arguments.append(uuidText(entry));
    m_surface.evaluateInBridge(
        QStringLiteral("finding.search(...%1)")
            .arg(QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact))));
}

void ResponseDisplay::findNext()
{
    if (m_findText)
        m_surface.evaluateInBridge(QStringLiteral("finding.step(1)"));
}

void ResponseDisplay::findPrevious()
{
    if (m_findText)
        m_surface.evaluateInBridge(QStringLiteral("finding.step(-1)"));
}

void ResponseDisplay::endFind()
{
    m_findText.reset();
    m_surface.evaluateInBridge(QStringLiteral("finding.end()"));
}

void ResponseDisplay::onFindResult(const QVariant &body)
{
    const QVariantMap map = body.toMap();
    const auto page = wholeNumber(map, QStringLiteral("page"));
    const auto current = wholeNumber(map, QStringLiteral("current"));
    const auto total = wholeNumber(map, QStringLiteral("total"));
    if (!page || !current || !total || *current < 0 || *current > *total ||
        *total > std::numeric_limits<int>::max()) {
        logMalformed(QStringLiteral("findResult"), body);
        return;
    }
    // A page that has been replaced may still answer.
    if (m_findText && static_cast<PageSurface::LoadId>(*page) == m_loadId)
        Q_EMIT findResultChanged(int(*current), int(*total));
}

void ResponseDisplay::onLinkActivated(const QString &address)
{
    const QUrl url(address, QUrl::StrictMode);
    const QString scheme = url.scheme();
    const bool web =
        (scheme == QLatin1StringView("http") || scheme == QLatin1StringView("https")) &&
        !url.host().isEmpty();
    if (url.isValid() && (web || scheme == QLatin1StringView("mailto")))
        m_workspace.openUrl(url);
}

} // namespace quellora
