#include "panels/BottomPanelsModel.h"

#include "panels/PictureOffer.h"
#include "query/PromptConfig.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLocale>
#include <QMimeData>
#include <QUrl>

#include <algorithm>

namespace quellora {

namespace {

/// Assigns @p value; returns whether @p stored changed.
template <typename T>
bool assign(T &stored, const T &value)
{
    if (stored == value)
        return false;
    stored = value;
    return true;
}

} // namespace

BottomPanelsModel::BottomPanelsModel(Settings &settings, QObject *parent)
    : QObject(parent), m_settings(settings), m_models(settings, this), m_screenshot(this)
{
    connect(&m_screenshot, &StagedScreenshot::changed, this, &BottomPanelsModel::attachmentChanged);
    connect(this, &BottomPanelsModel::attachmentChanged, this, &BottomPanelsModel::editingChanged);
    connect(&m_settings, &Settings::userPromptChanged, this,
            &BottomPanelsModel::onUserPromptChanged);
    connect(this, &BottomPanelsModel::messageChanged, this,
            &BottomPanelsModel::blockedReasonChanged);
    onUserPromptChanged();
}

void BottomPanelsModel::onUserPromptChanged()
{
    const QString stored = promptText();
    if (m_prompt.fullText() != stored)
        m_prompt.setFullText(stored);
    Q_EMIT promptTextChanged();
}

void BottomPanelsModel::setHotkeys(const QVariantMap &hotkeys)
{
    if (assign(m_hotkeys, hotkeys))
        Q_EMIT hotkeysChanged();
}

void BottomPanelsModel::setAvailableHeight(double points)
{
    if (assign(m_availableHeight, points))
        Q_EMIT availableHeightChanged();
}

void BottomPanelsModel::setAdminMessage(const std::optional<AdminMessagePayload> &message)
{
    if (!assign(m_message, message))
        return;
    styleMessage();
    Q_EMIT messageChanged();
}

void BottomPanelsModel::setTextScale(double factor)
{
    if (!assign(m_textScale, factor))
        return;
    styleMessage();
    Q_EMIT messageChanged();
}

void BottomPanelsModel::styleMessage()
{
    StyledMarkdown::Style regular;
    regular.lineHeight = qRound(regular.lineHeight * m_textScale);
    StyledMarkdown::Style compact;
    compact.lineHeight = qRound(18 * m_textScale);
    compact.paragraphGap = 6;
    const QString markdown = m_message ? m_message->bodyMarkdown : QString();
    m_body = StyledMarkdown::fromMarkdown(markdown, regular);
    m_bodyCompact = StyledMarkdown::fromMarkdown(markdown, compact);
}

void BottomPanelsModel::setInformationalCollapsed(bool isCollapsed)
{
    if (assign(m_isInformationalCollapsed, isCollapsed))
        Q_EMIT messageChanged();
}

void BottomPanelsModel::setBlocked(bool isBlocked)
{
    if (assign(m_isBlocked, isBlocked))
        Q_EMIT isBlockedChanged();
}

void BottomPanelsModel::setStagedScreenshotData(const std::optional<QByteArray> &jpeg)
{
    const bool isAttached = jpeg.has_value();
    const bool hasChanged = assign(m_hasAttachedScreenshot, isAttached);
    m_screenshot.setData(jpeg.value_or(QByteArray()));
    if (hasChanged)
        Q_EMIT attachmentChanged();
}

void BottomPanelsModel::setEditing(bool isEditing, bool hasScreenshot)
{
    const bool hasStarted = assign(m_isEditing, isEditing);
    if (assign(m_hasEditedScreenshot, hasScreenshot) || hasStarted)
        Q_EMIT editingChanged();
}

void BottomPanelsModel::cancelEditing()
{
    if (m_isEditing)
        Q_EMIT editCancelled();
}

void BottomPanelsModel::setCapturing(bool isCapturing)
{
    if (assign(m_isCapturing, isCapturing))
        Q_EMIT isCapturingChanged();
}

QString BottomPanelsModel::messageHeader() const
{
    return m_message ? m_message->headerText.simplified() : QString();
}

QString BottomPanelsModel::messageActionLabel() const
{
    if (!m_message || !m_message->actionUrl ||
        !StyledMarkdown::isSafeAddress(*m_message->actionUrl))
        return {};
    return m_message->actionLabel.value_or(QString()).simplified();
}

bool BottomPanelsModel::isMessageCollapsed() const
{
    return m_message && !m_message->isBlocking() && m_isInformationalCollapsed;
}

QString BottomPanelsModel::blockedReason() const
{
    const QString header = isMessageBlocking() ? messageHeader() : QString();
    return QStringLiteral("Blocked: ") +
           (header.isEmpty() ? QStringLiteral("out of credits") : header);
}

bool BottomPanelsModel::hasAttachmentFailed() const
{
    return m_hasAttachedScreenshot && (m_screenshot.state() == StagedScreenshot::State::Failed ||
                                       m_screenshot.state() == StagedScreenshot::State::None);
}

QString BottomPanelsModel::attachmentCaption() const
{
    const QString use = QStringLiteral("goes with your next message");
    const QSize size = m_screenshot.pictureSize();
    if (!size.isValid())
        return use;
    return QStringLiteral("%1 \u00d7 %2 \u00b7 %3")
        .arg(QString::number(size.width()), QString::number(size.height()), use);
}

QString BottomPanelsModel::promptText() const
{
    const auto stored = m_settings.userPrompt();
    return stored ? *stored : PromptConfig::builtIn();
}

void BottomPanelsModel::setPromptText(const QString &text)
{
    // The field reports the text that was loaded into it; only an edit may create the settings key.
    if (text != promptText())
        m_settings.setUserPrompt(text);
}

void BottomPanelsModel::setTypedText(const QString &text)
{
    if (text == m_prompt.typed())
        return;
    m_prompt.setTyped(text);
    setPromptText(m_prompt.fullText());
}

QString BottomPanelsModel::pastedCaption() const
{
    const qsizetype length = m_prompt.pasted().size();
    return length == 0 ? QString()
                       : QStringLiteral("Pasted text \u00b7 %1 characters")
                             .arg(QLocale(QLocale::English).toString(length));
}

bool BottomPanelsModel::pasteLongText(int start, int end, bool fromSelection)
{
    const QString text = QGuiApplication::clipboard()->text(fromSelection ? QClipboard::Selection
                                                                          : QClipboard::Clipboard);
    if (!m_prompt.pasteLongText(text, start, end))
        return false;
    setPromptText(m_prompt.fullText());
    return true;
}

void BottomPanelsModel::removePastedText()
{
    m_prompt.removePasted();
    setPromptText(m_prompt.fullText());
}

bool BottomPanelsModel::pastePicture()
{
    const QMimeData *offer = QGuiApplication::clipboard()->mimeData();
    if (!offer)
        return false;
    const QString file = pictureoffer::localFile(offer->urls());
    if (pictureoffer::isPictureName(file)) {
        Q_EMIT pictureOffered({{}, file});
        return true;
    }
    if (offer->hasText() || !pictureoffer::hasPictureData(offer->formats()))
        return false;
    const QString format = pictureoffer::format(offer->formats());
    if (format.isEmpty())
        Q_EMIT pictureRefused(PictureImport::formatProblem());
    else
        Q_EMIT pictureOffered({offer->data(format), {}});
    return true;
}

bool BottomPanelsModel::acceptsDrop(const QStringList &formats, const QList<QUrl> &urls) const
{
    return pictureoffer::hasPictureData(formats) ||
           std::any_of(urls.begin(), urls.end(), [](const QUrl &url) { return url.isLocalFile(); });
}

QString BottomPanelsModel::droppedFormat(const QStringList &formats, const QList<QUrl> &urls) const
{
    return pictureoffer::localFile(urls).isEmpty() ? pictureoffer::format(formats) : QString();
}

void BottomPanelsModel::drop(const QList<QUrl> &urls, const QByteArray &data)
{
    const QString file = pictureoffer::localFile(urls);
    if (!file.isEmpty())
        Q_EMIT pictureOffered({{}, file});
    else if (urls.size() > 1)
        Q_EMIT pictureRefused(QStringLiteral("Only one picture can be attached at a time."));
    else if (data.isEmpty())
        Q_EMIT pictureRefused(PictureImport::formatProblem());
    else
        Q_EMIT pictureOffered({data, {}});
}

void BottomPanelsModel::setPromptFocused(bool isFocused)
{
    if (assign(m_isPromptFocused, isFocused))
        Q_EMIT isPromptFocusedChanged();
}

void BottomPanelsModel::send()
{
    if (m_isBlocked || !isPromptEmpty())
        Q_EMIT sendRequested(promptText());
}

void BottomPanelsModel::addNote()
{
    if (isPromptEmpty())
        return;
    Q_EMIT noteRequested(promptText());
    setPromptText(QString());
}

void BottomPanelsModel::captureAndSend()
{
    if (!m_isCapturing)
        Q_EMIT captureAndSendRequested();
}

void BottomPanelsModel::captureNoSend()
{
    if (!m_isCapturing)
        Q_EMIT captureNoSendRequested();
}

void BottomPanelsModel::removeAttachment()
{
    if (m_hasAttachedScreenshot)
        Q_EMIT attachmentRemoved();
}

void BottomPanelsModel::startNewThread()
{
    Q_EMIT newThreadRequested();
}

void BottomPanelsModel::toggleMessageCollapsed()
{
    if (m_message && !m_message->isBlocking())
        Q_EMIT informationalCollapseToggled();
}

void BottomPanelsModel::performMessageAction()
{
    if (!messageActionLabel().isEmpty())
        Q_EMIT messageActionRequested(QUrl(*m_message->actionUrl, QUrl::StrictMode));
}

void BottomPanelsModel::openMessageLink(const QString &address)
{
    if (StyledMarkdown::isSafeAddress(address))
        Q_EMIT messageActionRequested(QUrl(address, QUrl::StrictMode));
}

void BottomPanelsModel::reportHeight(double points)
{
    if (assign(m_reportedHeight, points))
        Q_EMIT heightChanged(points);
}

} // namespace quellora
