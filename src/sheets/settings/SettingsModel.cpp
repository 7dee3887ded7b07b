#include "sheets/settings/SettingsModel.h"

#include "backend/Answerer.h"

#include <optional>
#include <utility>

namespace quellora {

SettingsModel::SettingsModel(ModelListModel &models, HotkeyRebinding &rebinding, Vocabulary words,
                             QObject *parent)
    : QObject(parent)
    , m_models(models)
    , m_words(std::move(words))
    , m_hotkeyRows(rebinding, m_words)
    , m_answerer(givenAnswerer)
{}

void SettingsModel::setOpen(bool isOpen)
{
    if (isOpen == m_isOpen)
        return;
    if (isOpen)
        restoreHexInput();
    m_isOpen = isOpen;
    Q_EMIT isOpenChanged();
}

void SettingsModel::setLightTheme(bool isLight)
{
    if (isLight == m_isLight)
        return;
    m_isLight = isLight;
    m_textColors.setLightTheme(isLight);
    Q_EMIT isLightThemeChanged();
}

void SettingsModel::setAnswererName(const QString &name)
{
    if (name == m_answerer)
        return;
    m_answerer = name;
    Q_EMIT modelHintChanged();
}

QString SettingsModel::modelHint() const
{
    return m_answerer == givenAnswerer
               ? QStringLiteral("Choose which Claude model handles your requests.")
               : QStringLiteral("Choose which model handles your requests.");
}

QString SettingsModel::appearanceHint() const
{
    return QStringLiteral("Match your background: dark theme over dark apps, light theme over "
                          "documents or bright UIs. System follows ") +
           m_words.appearanceSetting + u'.';
}

void SettingsModel::setCaptureNote(const QString &note)
{
    if (note == m_captureNote)
        return;
    m_captureNote = note;
    Q_EMIT captureNoteChanged();
}

void SettingsModel::setSelectedModelId(const QString &id)
{
    if (id == m_selectedModelId)
        return;
    m_selectedModelId = id;
    Q_EMIT selectedModelIdChanged();
}

void SettingsModel::setAppearanceMode(const QString &mode)
{
    if (mode == m_appearanceMode)
        return;
    m_appearanceMode = mode;
    Q_EMIT appearanceModeChanged();
}

void SettingsModel::setResponseTextColorHex(const QString &hex)
{
    if (hex != m_responseTextColorHex) {
        m_responseTextColorHex = hex;
        m_textColors.setChosenHex(hex);
        Q_EMIT responseTextColorHexChanged();
    }
    restoreHexInput();
}

void SettingsModel::setStartNewThreadPerSendEnabled(bool isEnabled)
{
    if (isEnabled == m_startNewThreadPerSend)
        return;
    m_startNewThreadPerSend = isEnabled;
    Q_EMIT startNewThreadPerSendEnabledChanged();
}

void SettingsModel::setDontClearPromptAfterSendEnabled(bool isEnabled)
{
    if (isEnabled == m_dontClearPromptAfterSend)
        return;
    m_dontClearPromptAfterSend = isEnabled;
    Q_EMIT dontClearPromptAfterSendEnabledChanged();
}

void SettingsModel::setScreenChoiceOffered(bool isOffered)
{
    if (isOffered == m_isScreenChoiceOffered)
        return;
    m_isScreenChoiceOffered = isOffered;
    Q_EMIT isScreenChoiceOfferedChanged();
}

void SettingsModel::setCaptureAllScreens(bool isEnabled)
{
    if (isEnabled == m_captureAllScreens)
        return;
    m_captureAllScreens = isEnabled;
    Q_EMIT captureAllScreensChanged();
}

void SettingsModel::setHexInput(const QString &text)
{
    if (text == m_hexInput)
        return;
    m_hexInput = text;
    Q_EMIT hexInputChanged();
}

void SettingsModel::setHexError(const QString &error)
{
    if (error == m_hexError)
        return;
    m_hexError = error;
    Q_EMIT hexErrorChanged();
}

void SettingsModel::restoreHexInput()
{
    setHexError(QString());
    setHexInput(m_responseTextColorHex);
}

void SettingsModel::close()
{
    if (m_isOpen)
        Q_EMIT closeRequested();
}

void SettingsModel::selectModel(const QString &id)
{
    if (m_models.rowOf(id) >= 0)
        Q_EMIT modelSelected(id);
}

void SettingsModel::chooseAppearance(const QString &mode)
{
    const bool isKnown = mode == QLatin1StringView("light") || mode == QLatin1StringView("dark") ||
                         mode == QLatin1StringView("system");
    if (isKnown && mode != m_appearanceMode)
        Q_EMIT appearanceChosen(mode);
}

void SettingsModel::chooseTextColor(int row)
{
    if (row >= 0 && row < m_textColors.rowCount())
        Q_EMIT responseTextColorChosen(m_textColors.hexAt(row));
}

void SettingsModel::commitHexInput()
{
    const std::optional<QString> hex = TextColors::normalizedHex(m_hexInput);
    if (!hex) {
        setHexError(QStringLiteral("Enter a valid hex color, e.g. #8899aa"));
        return;
    }
    setHexError(QString());
    Q_EMIT responseTextColorChosen(*hex);
}

void SettingsModel::leaveHexInput()
{
    if (m_hexInput.trimmed().isEmpty() || m_hexInput == m_responseTextColorHex)
        restoreHexInput();
    else
        commitHexInput();
}

void SettingsModel::toggleStartNewThreadPerSend()
{
    Q_EMIT startNewThreadPerSendToggled(!m_startNewThreadPerSend);
}

void SettingsModel::toggleDontClearPromptAfterSend()
{
    Q_EMIT dontClearPromptAfterSendToggled(!m_dontClearPromptAfterSend);
}

void SettingsModel::chooseCaptureAllScreens(bool isEnabled)
{
    Q_EMIT captureAllScreensChosen(isEnabled);
}

} // namespace quellora
