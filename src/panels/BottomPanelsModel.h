#pragma once

#include "backend/Records.h"
#include "panels/ModelListModel.h"
#include "panels/PromptText.h"
#include "panels/StagedScreenshot.h"
#include "panels/StyledMarkdown.h"

#include <QObject>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

class UserDefaults;

/// Everything the bottom panels show, and every wish they pass on.
///
/// The owner sets the inputs and connects the signals; the view adds nothing but layout. The
/// prompt's text and whether the first-launch card is due live in the user defaults. Main thread
/// only.
class BottomPanelsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    /// Combos in their display form ("Ctrl+Alt+Super+C") by the JSON keys of the actions.
    Q_PROPERTY(QVariantMap hotkeys READ hotkeys NOTIFY hotkeysChanged)
    Q_PROPERTY(double availableHeight READ availableHeight WRITE setAvailableHeight NOTIFY
                   availableHeightChanged)

    Q_PROPERTY(bool hasMessage READ hasMessage NOTIFY messageChanged)
    Q_PROPERTY(QString messageId READ messageId NOTIFY messageChanged)
    Q_PROPERTY(bool isMessageBlocking READ isMessageBlocking NOTIFY messageChanged)
    Q_PROPERTY(QString messageHeader READ messageHeader NOTIFY messageChanged)
    Q_PROPERTY(QString messageBody READ messageBody NOTIFY messageChanged)
    Q_PROPERTY(QString messageBodyCompact READ messageBodyCompact NOTIFY messageChanged)
    Q_PROPERTY(QString messageBodyText READ messageBodyText NOTIFY messageChanged)
    Q_PROPERTY(QString messageActionLabel READ messageActionLabel NOTIFY messageChanged)
    Q_PROPERTY(bool isMessageCollapsed READ isMessageCollapsed NOTIFY messageChanged)
    Q_PROPERTY(bool isBlocked READ isBlocked WRITE setBlocked NOTIFY isBlockedChanged)
    Q_PROPERTY(QString blockedReason READ blockedReason NOTIFY blockedReasonChanged)

    Q_PROPERTY(bool keepAIHistoryEnabled READ keepAIHistoryEnabled WRITE setKeepAIHistoryEnabled
                   NOTIFY keepAIHistoryEnabledChanged)
    Q_PROPERTY(bool startNewThreadPerSendEnabled READ startNewThreadPerSendEnabled WRITE
                   setStartNewThreadPerSendEnabled NOTIFY startNewThreadPerSendEnabledChanged)
    Q_PROPERTY(bool dontClearPromptAfterSendEnabled READ dontClearPromptAfterSendEnabled WRITE
                   setDontClearPromptAfterSendEnabled NOTIFY dontClearPromptAfterSendEnabledChanged)
    Q_PROPERTY(QString appearanceMode READ appearanceMode WRITE setAppearanceMode NOTIFY
                   appearanceModeChanged)

    Q_PROPERTY(quellora::ModelListModel *models READ models CONSTANT)
    Q_PROPERTY(QString selectedModelId READ selectedModelId WRITE setSelectedModelId NOTIFY
                   selectedModelChanged)
    Q_PROPERTY(QString selectedModelName READ selectedModelName NOTIFY selectedModelChanged)
    Q_PROPERTY(QString answererName READ answererName NOTIFY selectedModelChanged)

    Q_PROPERTY(bool hasAttachedScreenshot READ hasAttachedScreenshot NOTIFY attachmentChanged)
    Q_PROPERTY(QImage attachmentImage READ attachmentImage NOTIFY attachmentChanged)
    Q_PROPERTY(bool hasAttachmentFailed READ hasAttachmentFailed NOTIFY attachmentChanged)
    Q_PROPERTY(QString attachmentCaption READ attachmentCaption NOTIFY attachmentChanged)
    Q_PROPERTY(bool isCapturing READ isCapturing WRITE setCapturing NOTIFY isCapturingChanged)

    Q_PROPERTY(QString promptText READ promptText WRITE setPromptText NOTIFY promptTextChanged)
    Q_PROPERTY(QString typedText READ typedText WRITE setTypedText NOTIFY promptTextChanged)
    Q_PROPERTY(QString pastedCaption READ pastedCaption NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptEmpty READ isPromptEmpty NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptFocused READ isPromptFocused WRITE setPromptFocused NOTIFY
                   isPromptFocusedChanged)
    Q_PROPERTY(
        bool isFirstLaunchCardDue READ isFirstLaunchCardDue NOTIFY isFirstLaunchCardDueChanged)

public:
    /// @param defaults must outlive the model.
    explicit BottomPanelsModel(UserDefaults &defaults, QObject *parent = nullptr);

    // Inputs set by the owner.
    void setHotkeys(const QVariantMap &hotkeys);
    void setAvailableHeight(double points);
    void setAdminMessage(const std::optional<AdminMessagePayload> &message);
    void setInformationalCollapsed(bool isCollapsed);
    void setBlocked(bool isBlocked);
    void setKeepAIHistoryEnabled(bool isEnabled);
    void setStartNewThreadPerSendEnabled(bool isEnabled);
    void setDontClearPromptAfterSendEnabled(bool isEnabled);
    /// "light", "dark" or "system".
    void setAppearanceMode(const QString &mode);
    void setAvailableModels(const QList<ModelOption> &models);
    /// Empty when no model is chosen.
    void setSelectedModelId(const QString &id);
    /// The staged JPEG; nothing when no screenshot is staged.
    void setStagedScreenshotData(const std::optional<QByteArray> &jpeg);
    void setCapturing(bool isCapturing);
    /// Ends the first-launch card: the user has found out how to capture.
    Q_INVOKABLE void finishFirstLaunch();

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
    bool keepAIHistoryEnabled() const { return m_keepAIHistory; }
    bool startNewThreadPerSendEnabled() const { return m_startNewThreadPerSend; }
    bool dontClearPromptAfterSendEnabled() const { return m_dontClearPromptAfterSend; }
    QString appearanceMode() const { return m_appearanceMode; }
    ModelListModel *models() { return &m_models; }
    QString selectedModelId() const { return m_selectedModelId; }
    /// Display name of the chosen model; "Model" when the choice is not in the list.
    QString selectedModelName() const;
    /// Whom texts name as the one who answers.
    QString answererName() const;
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
    /// Stores the text as the "userPrompt" default.
    void setPromptText(const QString &text);
    bool isPromptEmpty() const { return promptText().trimmed().isEmpty(); }
    bool isPromptFocused() const { return m_isPromptFocused; }
    void setPromptFocused(bool isFocused);
    bool isFirstLaunchCardDue() const;

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
    Q_INVOKABLE void toggleKeepAIHistory();
    Q_INVOKABLE void selectModel(const QString &id);
    Q_INVOKABLE void removeAttachment();
    Q_INVOKABLE void startNewThread();
    /// Nothing for a blocking message.
    Q_INVOKABLE void toggleMessageCollapsed();
    Q_INVOKABLE void performMessageAction();
    /// A link in the message's body; other addresses than http and https are dropped.
    Q_INVOKABLE void openMessageLink(const QString &address);
    /// The view's measured height in points; announced when it differs from the last one.
    Q_INVOKABLE void reportHeight(double points);
    double reportedHeight() const { return m_reportedHeight; }
    /// Asks the view to put the keyboard focus into the prompt box.
    Q_INVOKABLE void focusPrompt() { Q_EMIT promptFocusRequested(); }

Q_SIGNALS:
    void newThreadRequested();
    void keepAIHistoryToggled(bool isEnabled);
    void modelSelected(const QString &id);
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
    void keepAIHistoryEnabledChanged();
    void startNewThreadPerSendEnabledChanged();
    void dontClearPromptAfterSendEnabledChanged();
    void appearanceModeChanged();
    void selectedModelChanged();
    void attachmentChanged();
    void isCapturingChanged();
    void promptTextChanged();
    void isPromptFocusedChanged();
    void isFirstLaunchCardDueChanged();

private:
    void followPrompt();

    UserDefaults &m_defaults;
    PromptText m_prompt;
    QVariantMap m_hotkeys;
    double m_availableHeight = 0;
    double m_reportedHeight = 0;
    std::optional<AdminMessagePayload> m_message;
    StyledMarkdown m_body;
    StyledMarkdown m_bodyCompact;
    bool m_isInformationalCollapsed = false;
    bool m_isBlocked = false;
    bool m_keepAIHistory = false;
    bool m_startNewThreadPerSend = false;
    bool m_dontClearPromptAfterSend = false;
    QString m_appearanceMode = QStringLiteral("system");
    ModelListModel m_models;
    QString m_selectedModelId;
    bool m_hasAttachedScreenshot = false;
    StagedScreenshot m_screenshot;
    bool m_isCapturing = false;
    bool m_isPromptFocused = false;
};

} // namespace quellora
