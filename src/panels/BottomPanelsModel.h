#pragma once

#include "backend/Records.h"
#include "base/Settings.h"
#include "panels/ModelListModel.h"
#include "panels/PromptText.h"
#include "panels/StagedScreenshot.h"
#include "panels/StyledMarkdown.h"

#include <QObject>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

/// Everything the bottom panels show, and every wish they pass on.
///
/// The owner sets the inputs and connects the signals; the view adds nothing but layout. What is
/// stored, such as the prompt's text, lives in the settings. Main thread only.
class BottomPanelsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    /// Combos in their display form ("Ctrl+Alt+Super+C") by the JSON keys of the actions.
    Q_PROPERTY(QVariantMap hotkeys READ hotkeys NOTIFY hotkeysChanged)
    Q_PROPERTY(double availableHeight READ availableHeight NOTIFY availableHeightChanged)

    Q_PROPERTY(bool hasMessage READ hasMessage NOTIFY messageChanged)
    Q_PROPERTY(bool isMessageBlocking READ isMessageBlocking NOTIFY messageChanged)
    Q_PROPERTY(QString messageHeader READ messageHeader NOTIFY messageChanged)
    Q_PROPERTY(QString messageBody READ messageBody NOTIFY messageChanged)
    Q_PROPERTY(QString messageBodyCompact READ messageBodyCompact NOTIFY messageChanged)
    Q_PROPERTY(QString messageBodyText READ messageBodyText NOTIFY messageChanged)
    Q_PROPERTY(QString messageActionLabel READ messageActionLabel NOTIFY messageChanged)
    Q_PROPERTY(bool isMessageCollapsed READ isMessageCollapsed NOTIFY messageChanged)
    Q_PROPERTY(bool isBlocked READ isBlocked NOTIFY isBlockedChanged)
    Q_PROPERTY(QString blockedReason READ blockedReason NOTIFY blockedReasonChanged)

    Q_PROPERTY(quellora::Settings *settings READ settings CONSTANT)
    Q_PROPERTY(quellora::ModelListModel *models READ models CONSTANT)

    Q_PROPERTY(bool hasAttachedScreenshot READ hasAttachedScreenshot NOTIFY attachmentChanged)
    Q_PROPERTY(QImage attachmentImage READ attachmentImage NOTIFY attachmentChanged)
    Q_PROPERTY(bool hasAttachmentFailed READ hasAttachmentFailed NOTIFY attachmentChanged)
    Q_PROPERTY(QString attachmentCaption READ attachmentCaption NOTIFY attachmentChanged)
    Q_PROPERTY(bool isCapturing READ isCapturing NOTIFY isCapturingChanged)

    Q_PROPERTY(QString typedText READ typedText WRITE setTypedText NOTIFY promptTextChanged)
    Q_PROPERTY(QString pastedCaption READ pastedCaption NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptEmpty READ isPromptEmpty NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptFocused READ isPromptFocused WRITE setPromptFocused NOTIFY
                   isPromptFocusedChanged)

public:
    /// @param settings must outlive the model.
    explicit BottomPanelsModel(Settings &settings, QObject *parent = nullptr);

    // Inputs set by the owner.
    void setHotkeys(const QVariantMap &hotkeys);
    void setAvailableHeight(double points);
    void setAdminMessage(const std::optional<AdminMessagePayload> &message);
    void setInformationalCollapsed(bool isCollapsed);
    void setBlocked(bool isBlocked);
    /// The staged JPEG; nothing when no screenshot is staged.
    void setStagedScreenshotData(const std::optional<QByteArray> &jpeg);
    void setCapturing(bool isCapturing);

    const QVariantMap &hotkeys() const { return m_hotkeys; }
    double availableHeight() const { return m_availableHeight; }
    bool hasMessage() const { return m_message.has_value(); }
    QString messageId() const { return m_message ? m_message->id : QString(); }
    bool isMessageBlocking() const { return m_message && m_message->isBlocking(); }
    /// One line.
    QString messageHeader() const;
    /// Rich text without active content.
    QString messageBody() const { return m_body.richText; }
    /// The same with the closer lines of the compact size.
    QString messageBodyCompact() const { return m_bodyCompact.richText; }
    QString messageBodyText() const { return m_body.plainText; }
    /// Empty unless the message has an action whose address may be opened.
    QString messageActionLabel() const;
    bool isMessageCollapsed() const;
    bool isBlocked() const { return m_isBlocked; }
    /// Why sending is refused, for tooltips.
    QString blockedReason() const;
    Settings *settings() { return &m_settings; }
    ModelListModel *models() { return &m_models; }
    bool hasAttachedScreenshot() const { return m_hasAttachedScreenshot; }
    QImage attachmentImage() const { return m_screenshot.preview(); }
    bool hasAttachmentFailed() const;
    QString attachmentCaption() const;
    bool isCapturing() const { return m_isCapturing; }
    /// All of the prompt.
    QString promptText() const;
    /// The part of it that the field shows: all but a pasted text that is too long for a field.
    QString typedText() const { return m_prompt.typed(); }
    void setTypedText(const QString &text);
    /// Says how long that other part is; empty when there is none.
    QString pastedCaption() const;
    /// Stores the text, unless it is what the box shows already.
    void setPromptText(const QString &text);
    bool isPromptEmpty() const { return promptText().trimmed().isEmpty(); }
    bool isPromptFocused() const { return m_isPromptFocused; }
    void setPromptFocused(bool isFocused);

    // What the view asks for.
    /// Pastes the clipboard, or what is selected anywhere, over the typed characters from @p start
    /// to @p end when that is too long for the field. Otherwise nothing, and the field may paste.
    Q_INVOKABLE bool pasteLongText(int start, int end, bool fromSelection);
    Q_INVOKABLE void removePastedText();
    /// Sends the prompt; nothing while it is empty, unless blocked, where the owner explains.
    Q_INVOKABLE void send();
    /// Adds the prompt's text as a note and empties the box; nothing while it is empty.
    Q_INVOKABLE void addNote();
    /// Nothing while a capture runs.
    Q_INVOKABLE void captureAndSend();
    Q_INVOKABLE void captureNoSend();
    Q_INVOKABLE void removeAttachment();
    Q_INVOKABLE void startNewThread();
    /// Nothing for a blocking message.
    Q_INVOKABLE void toggleMessageCollapsed();
    Q_INVOKABLE void performMessageAction();
    /// A link in the message's body; other addresses than http and https are dropped.
    Q_INVOKABLE void openMessageLink(const QString &address);
    /// The view's measured height in points; announced when it differs from the last one.
    Q_INVOKABLE void reportHeight(double points);
    /// Asks the view to put the keyboard focus into the prompt box.
    Q_INVOKABLE void focusPrompt() { Q_EMIT promptFocusRequested(); }

Q_SIGNALS:
    void newThreadRequested();
    void attachmentRemoved();
    void noteRequested(const QString &text);
    void sendRequested(const QString &text);
    void captureAndSendRequested();
    void captureNoSendRequested();
    void informationalCollapseToggled();
    void messageActionRequested(const QUrl &url);
    void heightChanged(double points);
    void promptFocusRequested();

    void hotkeysChanged();
    void availableHeightChanged();
    void messageChanged();
    void isBlockedChanged();
    void blockedReasonChanged();
    void attachmentChanged();
    void isCapturingChanged();
    void promptTextChanged();
    void isPromptFocusedChanged();

private:
    void followPrompt();

    Settings &m_settings;
    PromptText m_prompt;
    QVariantMap m_hotkeys;
    double m_availableHeight = 0;
    double m_reportedHeight = 0;
    std::optional<AdminMessagePayload> m_message;
    StyledMarkdown m_body;
    StyledMarkdown m_bodyCompact;
    bool m_isInformationalCollapsed = false;
    bool m_isBlocked = false;
    ModelListModel m_models;
    bool m_hasAttachedScreenshot = false;
    StagedScreenshot m_screenshot;
    bool m_isCapturing = false;
    bool m_isPromptFocused = false;
};

} // namespace quellora
