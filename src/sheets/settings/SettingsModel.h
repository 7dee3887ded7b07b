#pragma once

#include "panels/ModelListModel.h"
#include "platform/Vocabulary.h"
#include "sheets/settings/HotkeyRows.h"
#include "sheets/settings/TextColors.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Everything the settings sheet shows, and every wish it passes on. The owner sets the inputs and
/// connects the signals; there is nothing to save. Main thread only.
class SettingsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged)
    Q_PROPERTY(bool isLightTheme READ isLightTheme NOTIFY isLightThemeChanged)
    Q_PROPERTY(QString modelHint READ modelHint NOTIFY modelHintChanged)
    Q_PROPERTY(QString appearanceHint READ appearanceHint CONSTANT)
    Q_PROPERTY(QString captureNote READ captureNote WRITE setCaptureNote NOTIFY captureNoteChanged)
    Q_PROPERTY(quellora::ModelListModel *models READ models CONSTANT)
    Q_PROPERTY(QString selectedModelId READ selectedModelId WRITE setSelectedModelId NOTIFY
                   selectedModelIdChanged)
    Q_PROPERTY(QString appearanceMode READ appearanceMode WRITE setAppearanceMode NOTIFY
                   appearanceModeChanged)
    Q_PROPERTY(quellora::TextColors *textColors READ textColors CONSTANT)
    Q_PROPERTY(QString responseTextColorHex READ responseTextColorHex WRITE setResponseTextColorHex
                   NOTIFY responseTextColorHexChanged)
    Q_PROPERTY(QString hexInput READ hexInput WRITE setHexInput NOTIFY hexInputChanged)
    Q_PROPERTY(QString hexError READ hexError NOTIFY hexErrorChanged)
    Q_PROPERTY(bool startNewThreadPerSendEnabled READ startNewThreadPerSendEnabled WRITE
                   setStartNewThreadPerSendEnabled NOTIFY startNewThreadPerSendEnabledChanged)
    Q_PROPERTY(bool dontClearPromptAfterSendEnabled READ dontClearPromptAfterSendEnabled WRITE
                   setDontClearPromptAfterSendEnabled NOTIFY dontClearPromptAfterSendEnabledChanged)
    Q_PROPERTY(bool isScreenChoiceOffered READ isScreenChoiceOffered WRITE setScreenChoiceOffered
                   NOTIFY isScreenChoiceOfferedChanged)
    Q_PROPERTY(bool captureAllScreens READ captureAllScreens WRITE setCaptureAllScreens NOTIFY
                   captureAllScreensChanged)
    Q_PROPERTY(quellora::HotkeyRows *hotkeyRows READ hotkeyRows CONSTANT)

public:
    /// Both must outlive the model.
    /// @param models the models on offer, shared with the picker
    /// @param words in which keys and the system's own settings are named
    SettingsModel(ModelListModel &models, HotkeyRebinding &rebinding, Vocabulary words,
                  QObject *parent = nullptr);

    // Inputs set by the owner.
    /// Opening starts with the hex field showing the colour in force and no error.
    void setOpen(bool isOpen);
    void setLightTheme(bool isLight);
    /// What this desktop cannot give, in the user's words; empty when there is nothing to say.
    void setCaptureNote(const QString &note);
    /// Empty when no model is chosen.
    void setSelectedModelId(const QString &id);
    /// Whom the hint names as the maker of the models; a model's own name makes it name nobody.
    void setAnswererName(const QString &name);
    /// "light", "dark" or "system".
    void setAppearanceMode(const QString &mode);
    /// Empty for the theme's own colour.
    void setResponseTextColorHex(const QString &hex);
    void setStartNewThreadPerSendEnabled(bool isEnabled);
    void setDontClearPromptAfterSendEnabled(bool isEnabled);
    /// There are several screens, and the capture tool can take one or all of them.
    void setScreenChoiceOffered(bool isOffered);
    void setCaptureAllScreens(bool isEnabled);

    bool isOpen() const { return m_isOpen; }
    bool isLightTheme() const { return m_isLight; }
    QString modelHint() const;
    QString appearanceHint() const;
    QString captureNote() const { return m_captureNote; }
    ModelListModel *models() { return &m_models; }
    QString selectedModelId() const { return m_selectedModelId; }
    QString appearanceMode() const { return m_appearanceMode; }
    TextColors *textColors() { return &m_textColors; }
    QString responseTextColorHex() const { return m_responseTextColorHex; }
    /// What stands in the hex field.
    QString hexInput() const { return m_hexInput; }
    void setHexInput(const QString &text);
    /// Why the field's text is no colour; empty when nothing is wrong.
    QString hexError() const { return m_hexError; }
    bool startNewThreadPerSendEnabled() const { return m_startNewThreadPerSend; }
    bool dontClearPromptAfterSendEnabled() const { return m_dontClearPromptAfterSend; }
    bool isScreenChoiceOffered() const { return m_isScreenChoiceOffered; }
    /// A capture shows all screens instead of the one with the pointer.
    bool captureAllScreens() const { return m_captureAllScreens; }
    HotkeyRows *hotkeyRows() { return &m_hotkeyRows; }

    // What the view asks for.
    Q_INVOKABLE void close();
    /// Also for the model that is in use: it may be the backend's choice, and becomes the user's.
    Q_INVOKABLE void selectModel(const QString &id);
    /// Nothing for any other text than the three modes.
    Q_INVOKABLE void chooseAppearance(const QString &mode);
    Q_INVOKABLE void chooseTextColor(int row);
    /// Takes the field's text as the colour, or says what is wrong with it.
    Q_INVOKABLE void commitHexInput();
    /// The field was left: as commitHexInput(), but an empty field is put right without a word.
    Q_INVOKABLE void leaveHexInput();
    /// What was typed is given up: the field shows the colour in force.
    Q_INVOKABLE void restoreHexInput();
    Q_INVOKABLE void toggleStartNewThreadPerSend();
    Q_INVOKABLE void toggleDontClearPromptAfterSend();
    Q_INVOKABLE void chooseCaptureAllScreens(bool isEnabled);
    Q_INVOKABLE void openHelp() { Q_EMIT helpRequested(); }

Q_SIGNALS:
    void closeRequested();
    void modelSelected(const QString &id);
    void appearanceChosen(const QString &mode);
    /// Empty for the theme's own colour.
    void responseTextColorChosen(const QString &hex);
    void startNewThreadPerSendToggled(bool isEnabled);
    void dontClearPromptAfterSendToggled(bool isEnabled);
    void captureAllScreensChosen(bool isEnabled);
    void helpRequested();

    void isOpenChanged();
    void isLightThemeChanged();
    void modelHintChanged();
    void captureNoteChanged();
    void selectedModelIdChanged();
    void appearanceModeChanged();
    void responseTextColorHexChanged();
    void hexInputChanged();
    void hexErrorChanged();
    void startNewThreadPerSendEnabledChanged();
    void dontClearPromptAfterSendEnabledChanged();
    void isScreenChoiceOfferedChanged();
    void captureAllScreensChanged();

private:
    void setHexError(const QString &error);

    ModelListModel &m_models;
    Vocabulary m_words;
    TextColors m_textColors;
    HotkeyRows m_hotkeyRows;
    bool m_isOpen = false;
    bool m_isLight = false;
    QString m_answerer;
    QString m_captureNote;
    QString m_selectedModelId;
    QString m_appearanceMode = QStringLiteral("system");
    QString m_responseTextColorHex;
    QString m_hexInput;
    QString m_hexError;
    bool m_startNewThreadPerSend = false;
    bool m_dontClearPromptAfterSend = false;
    bool m_isScreenChoiceOffered = false;
    bool m_captureAllScreens = false;
};

} // namespace quellora
