#pragma once

#include "backend/Records.h"
#include "base/Settings.h"
#include "panels/ModelListModel.h"
#include "panels/PromptListModel.h"
#include "panels/PromptText.h"
#include "panels/StagedScreenshot.h"
#include "panels/StyledMarkdown.h"
#include "query/PictureImport.h"

#include <QObject>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

/// View model of the bottom panels: their state and the actions they request.
///
/// The owner sets the inputs and connects the signals; the view only adds the layout. Persistent
/// state, such as the prompt, is kept in the settings. Main thread only.
class BottomPanelsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    /// Display text of each hot key ("Ctrl+Alt+Super+C") by the JSON key of its action.
    Q_PROPERTY(QVariantMap hotkeys READ hotkeys NOTIFY hotkeysChanged)
    Q_PROPERTY(double availableHeight READ availableHeight NOTIFY availableHeightChanged)
    /// Set by the view: factor of the text size, for the lines of the message's body.
    Q_PROPERTY(double textScale READ textScale WRITE setTextScale NOTIFY messageChanged)

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
    Q_PROPERTY(quellora::PromptListModel *prompts READ prompts CONSTANT)

    Q_PROPERTY(bool hasAttachedScreenshot READ hasAttachedScreenshot NOTIFY attachmentChanged)
    Q_PROPERTY(QImage attachmentImage READ attachmentImage NOTIFY attachmentChanged)
    Q_PROPERTY(bool hasAttachmentFailed READ hasAttachmentFailed NOTIFY attachmentChanged)
    Q_PROPERTY(QString attachmentCaption READ attachmentCaption NOTIFY attachmentChanged)
    Q_PROPERTY(bool isEditing READ isEditing NOTIFY editingChanged)
    Q_PROPERTY(bool isScreenshotKept READ isScreenshotKept NOTIFY editingChanged)
    Q_PROPERTY(bool isCapturing READ isCapturing NOTIFY isCapturingChanged)

    Q_PROPERTY(QString typedText READ typedText WRITE setTypedText NOTIFY promptTextChanged)
    Q_PROPERTY(QString pastedCaption READ pastedCaption NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptEmpty READ isPromptEmpty NOTIFY promptTextChanged)
    Q_PROPERTY(bool isPromptFocused READ isPromptFocused WRITE setPromptFocused NOTIFY
                   isPromptFocusedChanged)

public:
    /// @param settings must outlive the model.
    explicit BottomPanelsModel(Settings &settings, QObject *parent = nullptr);

    // Inputs, set by the owner.
    void setHotkeys(const QVariantMap &hotkeys);
    void setAvailableHeight(double points);
    void setAdminMessage(const std::optional<AdminMessagePayload> &message);
    void setInformationalCollapsed(bool isCollapsed);
    void setBlocked(bool isBlocked);
    /// The staged JPEG; nullopt if no screenshot is staged.
    void setStagedScreenshotData(const std::optional<QByteArray> &jpeg);
    void setCapturing(bool isCapturing);
    /// @param hasScreenshot whether the edited question was sent with a screenshot
    void setEditing(bool isEditing, bool hasScreenshot);

    const QVariantMap &hotkeys() const { return m_hotkeys; }
    double availableHeight() const { return m_availableHeight; }
    double textScale() const { return m_textScale; }
    void setTextScale(double factor);
    bool hasMessage() const { return m_message.has_value(); }
    QString messageId() const { return m_message ? m_message->id : QString(); }
    bool isMessageBlocking() const { return m_message && m_message->isBlocking(); }
    /// Single line; line breaks are replaced by blanks.
    QString messageHeader() const;
    /// Sanitised rich text without active content.
    QString messageBody() const { return m_body.richText; }
    /// messageBody() with the smaller line spacing of the compact size.
    QString messageBodyCompact() const { return m_bodyCompact.richText; }
    QString messageBodyText() const { return m_body.plainText; }
    /// Empty unless the message has an action with a safe address.
    QString messageActionLabel() const;
    bool isMessageCollapsed() const;
    bool isBlocked() const { return m_isBlocked; }
    /// Why sending is blocked, for tooltips.
    QString blockedReason() const;
    Settings *settings() { return &m_settings; }
    ModelListModel *models() { return &m_models; }
    /// The user's prompts, set by the owner.
    PromptListModel *prompts() { return &m_prompts; }
    bool hasAttachedScreenshot() const { return m_hasAttachedScreenshot; }
    QImage attachmentImage() const { return m_screenshot.preview(); }
    bool hasAttachmentFailed() const;
    QString attachmentCaption() const;
    bool isCapturing() const { return m_isCapturing; }
    /// Whether the prompt box holds the last question, to be sent in its place.
    bool isEditing() const { return m_isEditing; }
    /// Whether the edited question goes with the screenshot that it was sent with.
    bool isScreenshotKept() const { return m_hasEditedScreenshot && !m_hasAttachedScreenshot; }
    /// The whole prompt.
    QString promptText() const;
    /// The part of the prompt shown in the field, i.e. without a pasted text too long for it.
    QString typedText() const { return m_prompt.typed(); }
    void setTypedText(const QString &text);
    /// Description of the long pasted text with its length; empty if there is none.
    QString pastedCaption() const;
    /// Stores the prompt unless it is unchanged.
    void setPromptText(const QString &text);
    bool isPromptEmpty() const { return promptText().trimmed().isEmpty(); }
    bool isPromptFocused() const { return m_isPromptFocused; }
    void setPromptFocused(bool isFocused);

    // Actions of the view.
    /// Replaces the typed characters from @p start to @p end by the clipboard or, with
    /// @p fromSelection, the primary selection, if the result is too long for the field. Returns
    /// false if it is not; the field then pastes itself.
    Q_INVOKABLE bool pasteLongText(int start, int end, bool fromSelection);
    Q_INVOKABLE void removePastedText();
    /// Offers the picture on the clipboard, if there is one and no text. Returns false if not.
    Q_INVOKABLE bool pastePicture();
    /// Whether a drag of these formats and addresses can be dropped: data of a picture or files.
    Q_INVOKABLE bool acceptsDrop(const QStringList &formats, const QList<QUrl> &urls) const;
    /// The format of the data to take from the drop; empty if its file is taken.
    Q_INVOKABLE QString droppedFormat(const QStringList &formats, const QList<QUrl> &urls) const;
    /// Offers a dropped picture, whose content is @p data unless it is a file.
    Q_INVOKABLE void drop(const QList<QUrl> &urls, const QByteArray &data);
    /// Sends the prompt. Ignored if it is empty, except while blocked, when the owner shows the
    /// reason.
    Q_INVOKABLE void send();
    /// Adds the prompt as a note and clears it; ignored if it is empty.
    Q_INVOKABLE void addNote();
    /// Ignored while a capture is running, like captureNoSend().
    Q_INVOKABLE void captureAndSend();
    Q_INVOKABLE void captureNoSend();
    Q_INVOKABLE void removeAttachment();
    /// Gives the edited question up.
    Q_INVOKABLE void cancelEditing();
    Q_INVOKABLE void startNewThread();
    /// Ignored for a blocking message.
    Q_INVOKABLE void toggleMessageCollapsed();
    Q_INVOKABLE void performMessageAction();
    /// Opens a link of the message's body; addresses other than http and https are ignored.
    Q_INVOKABLE void openMessageLink(const QString &address);
    /// Sets the view's height in points; emits heightChanged() if it differs from the last one.
    Q_INVOKABLE void reportHeight(double points);
    /// Requests keyboard focus for the prompt field.
    Q_INVOKABLE void focusPrompt() { Q_EMIT promptFocusRequested(); }

Q_SIGNALS:
    void newThreadRequested();
    void attachmentRemoved();
    void editCancelled();
    /// The user has pasted or dropped a picture to go with the next message.
    void pictureOffered(const quellora::OfferedPicture &picture);
    /// What the user has pasted or dropped cannot be attached; @p reason is a sentence for the
    /// user.
    void pictureRefused(const QString &reason);
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
    void editingChanged();
    void promptTextChanged();
    void isPromptFocusedChanged();

private:
    /// Converts the message's body.
    void styleMessage();
    void onUserPromptChanged();

    Settings &m_settings;
    PromptText m_prompt;
    QVariantMap m_hotkeys;
    double m_availableHeight = 0;
    double m_reportedHeight = 0;
    std::optional<AdminMessagePayload> m_message;
    StyledMarkdown m_body;
    StyledMarkdown m_bodyCompact;
    double m_textScale = 1;
    bool m_isInformationalCollapsed = false;
    bool m_isBlocked = false;
    ModelListModel m_models;
    PromptListModel m_prompts;
    bool m_hasAttachedScreenshot = false;
    StagedScreenshot m_screenshot;
    bool m_isCapturing = false;
    bool m_isEditing = false;
    bool m_hasEditedScreenshot = false;
    bool m_isPromptFocused = false;
};

} // namespace quellora
