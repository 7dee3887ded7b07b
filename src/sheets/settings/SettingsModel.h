#pragma once

#include "base/Settings.h"
#include "panels/ModelListModel.h"
#include "platform/Vocabulary.h"
#include "sheets/settings/HotkeyRows.h"
#include "sheets/settings/TextColors.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// What the settings sheet shows beside the stored settings themselves, which its views bind to and
/// write at once. The owner sets the inputs and connects the signals. Main thread only.
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
    Q_PROPERTY(quellora::HotkeyRows *hotkeyRows READ hotkeyRows CONSTANT)

public:
    /// All references must outlive the model.
    /// @param models the models on offer, shared with the picker
    /// @param words in which keys and the system's own settings are named
    SettingsModel(Settings &settings, ModelListModel &models, HotkeyRebinding &rebinding,
                  Vocabulary words, QObject *parent = nullptr);

    // Inputs set by the owner.
    /// Opening starts with the hex field showing the colour in force and no error.
    void setOpen(bool isOpen);
    void setLightTheme(bool isLight);
    /// What this desktop cannot give, in the user's words; empty when there is nothing to say.
    void setCaptureNote(const QString &note);
    /// There are several screens, and the capture tool can take one or all of them.
    void setScreenChoiceOffered(bool isOffered);

    bool isOpen() const { return m_isOpen; }
    bool isLightTheme() const { return m_isLight; }
    /// Names the maker of the models, unless another one's are on offer.
    QString modelHint() const;
    QString appearanceHint() const;
    QString captureNote() const { return m_captureNote; }
    Settings *stored() { return &m_settings; }
    ModelListModel *models() { return &m_models; }
    TextColors *textColors() { return &m_textColors; }
    /// What stands in the hex field.
    QString hexInput() const { return m_hexInput; }
    void setHexInput(const QString &text);
    /// Why the field's text is no colour; empty when nothing is wrong.
    QString hexError() const { return m_hexError; }
    bool isScreenChoiceOffered() const { return m_isScreenChoiceOffered; }
    HotkeyRows *hotkeyRows() { return &m_hotkeyRows; }

    // What the view asks for.
    Q_INVOKABLE void close();
    /// Stores the colour of a row of textColors().
    Q_INVOKABLE void chooseTextColor(int row);
    /// Stores the field's text as the colour, or says what is wrong with it.
    Q_INVOKABLE void commitHexInput();
    /// The field was left: as commitHexInput(), but an empty field silently reverts.
    Q_INVOKABLE void leaveHexInput();
    /// Discards what was typed: the field shows the colour in force.
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

private:
    /// The colour in force; empty for the theme's own, also where no colour is stored.
    QString textColorHex() const;
    void storeTextColor(const QString &hex);
    void showTextColor();
    void setHexError(const QString &error);

    Settings &m_settings;
    ModelListModel &m_models;
    Vocabulary m_words;
    TextColors m_textColors;
    HotkeyRows m_hotkeyRows;
    bool m_isOpen = false;
    bool m_isLight = false;
    QString m_captureNote;
    QString m_hexInput;
    QString m_hexError;
    bool m_isScreenChoiceOffered = false;
};

} // namespace quellora
