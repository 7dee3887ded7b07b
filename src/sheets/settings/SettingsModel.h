#pragma once

#include "base/Settings.h"
#include "panels/ModelListModel.h"
#include "platform/Vocabulary.h"
#include "sheets/settings/HotkeyRows.h"
#include "sheets/settings/LicenseRows.h"
#include "sheets/settings/PromptRows.h"
#include "sheets/settings/TextColors.h"
#include "sheets/settings/ThreadStorage.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace quellora {

/// View model of the settings sheet. Its views bind directly to the stored settings, which take
/// effect immediately; this class adds everything else. The owner sets the inputs and handles the
/// request signals. Main thread only.
class SettingsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged)
    Q_PROPERTY(bool isLightTheme READ isLightTheme NOTIFY isLightThemeChanged)
    Q_PROPERTY(QString modelHint READ modelHint NOTIFY modelHintChanged)
    Q_PROPERTY(QString appearanceHint READ appearanceHint CONSTANT)
    Q_PROPERTY(QString captureNote READ captureNote NOTIFY captureNoteChanged)
    Q_PROPERTY(quellora::Settings *stored READ stored CONSTANT)
    Q_PROPERTY(quellora::ModelListModel *models READ models CONSTANT)
    Q_PROPERTY(quellora::TextColors *textColors READ textColors CONSTANT)
    Q_PROPERTY(QString hexInput READ hexInput WRITE setHexInput NOTIFY hexInputChanged)
    Q_PROPERTY(QString hexError READ hexError NOTIFY hexErrorChanged)
    Q_PROPERTY(
        bool isScreenChoiceOffered READ isScreenChoiceOffered NOTIFY isScreenChoiceOfferedChanged)
    Q_PROPERTY(bool isNoticeOffered READ isNoticeOffered NOTIFY isNoticeOfferedChanged)
    Q_PROPERTY(quellora::HotkeyRows *hotkeyRows READ hotkeyRows CONSTANT)
    Q_PROPERTY(quellora::PromptRows *promptRows READ promptRows NOTIFY promptRowsChanged)
    Q_PROPERTY(quellora::ThreadStorage *threads READ threads NOTIFY threadsChanged)
    Q_PROPERTY(QString programVersion READ programVersion CONSTANT)
    Q_PROPERTY(quellora::LicenseRows *licenses READ licenses CONSTANT)

public:
    /// All references must outlive the model.
    /// @param models the available models, shared with the model picker
    /// @param vocabulary platform-specific names of keys and system settings
    SettingsModel(Settings &settings, ModelListModel &models, HotkeyRebinding &rebinding,
                  Vocabulary vocabulary, ShortcutGuide guide = {}, QObject *parent = nullptr);

    // Inputs set by the owner.
    /// Opening resets the hex field to the current colour.
    void setOpen(bool isOpen);
    void setLightTheme(bool isLight);
    /// User-facing note about limitations of this desktop; empty for none.
    void setCaptureNote(const QString &note);
    /// Set if there are several screens and the capture tool can capture one or all of them.
    void setScreenChoiceOffered(bool isOffered);
    /// Set if the desktop can show notifications.
    void setNoticeOffered(bool isOffered);

    /// Offers the user's prompts for editing; @p presets must outlive the model.
    void setPrompts(PromptPresets &presets);
    /// Offers what concerns the stored threads; both must outlive the model.
    void setThreads(ThreadLibrary &library, HistoryController &history);

    bool isOpen() const { return m_isOpen; }
    bool isLightTheme() const { return m_isLight; }
    /// Includes the maker's name only if the default maker's models are available.
    QString modelHint() const;
    QString appearanceHint() const;
    QString captureNote() const { return m_captureNote; }
    Settings *stored() { return &m_settings; }
    ModelListModel *models() { return &m_models; }
    TextColors *textColors() { return &m_textColors; }
    /// Text of the hex field.
    QString hexInput() const { return m_hexInput; }
    void setHexInput(const QString &text);
    /// Error text of the hex field; empty if there is none.
    QString hexError() const { return m_hexError; }
    bool isScreenChoiceOffered() const { return m_isScreenChoiceOffered; }
    bool isNoticeOffered() const { return m_isNoticeOffered; }
    HotkeyRows *hotkeyRows() { return &m_hotkeyRows; }
    /// Null until setPrompts().
    PromptRows *promptRows() { return m_promptRows.get(); }
    /// Null until setThreads().
    ThreadStorage *threads() { return m_threads.get(); }
    /// "Quellora" and the version.
    QString programVersion() const;
    LicenseRows *licenses() { return &m_licenses; }

    // Called by the view.
    Q_INVOKABLE void close();
    /// Stores the colour of a row of textColors().
    Q_INVOKABLE void chooseTextColor(int row);
    /// Stores the hex field's text as the colour or sets hexError().
    Q_INVOKABLE void commitHexInput();
    /// Call when the hex field loses the focus: like commitHexInput(), but an empty field silently
    /// reverts.
    Q_INVOKABLE void leaveHexInput();
    /// Reverts the hex field to the current colour.
    Q_INVOKABLE void restoreHexInput();
    Q_INVOKABLE void openHelp() { Q_EMIT helpRequested(); }

Q_SIGNALS:
    void closeRequested();
    void helpRequested();

    void isOpenChanged();
    void isLightThemeChanged();
    void modelHintChanged();
    void captureNoteChanged();
    void hexInputChanged();
    void hexErrorChanged();
    void isScreenChoiceOfferedChanged();
    void isNoticeOfferedChanged();
    void promptRowsChanged();
    void threadsChanged();

private:
    /// The stored colour; empty for the theme's own or if the stored value is invalid.
    QString textColorHex() const;
    void storeTextColor(const QString &hex);
    void showTextColor();
    void setHexError(const QString &error);

    Settings &m_settings;
    ModelListModel &m_models;
    Vocabulary m_vocabulary;
    TextColors m_textColors;
    LicenseRows m_licenses;
    HotkeyRows m_hotkeyRows;
    std::unique_ptr<PromptRows> m_promptRows;
    std::unique_ptr<ThreadStorage> m_threads;
    bool m_isOpen = false;
    bool m_isLight = false;
    QString m_captureNote;
    QString m_hexInput;
    QString m_hexError;
    bool m_isScreenChoiceOffered = false;
    bool m_isNoticeOffered = false;
};

} // namespace quellora
