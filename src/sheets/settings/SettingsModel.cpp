#include "sheets/settings/SettingsModel.h"

#include "backend/Answerer.h"
#include "base/AppConfig.h"
#include "base/Text.h"

#include <optional>
#include <utility>

namespace quellora {

SettingsModel::SettingsModel(Settings &settings, ModelListModel &models, HotkeyRebinding &rebinding,
                             Vocabulary vocabulary, ShortcutGuide guide, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_models(models)
    , m_vocabulary(std::move(vocabulary))
    , m_hotkeyRows(rebinding, m_vocabulary, std::move(guide))
{
    connect(&m_models, &ModelListModel::selectedChanged, this, &SettingsModel::modelHintChanged);
    connect(&m_settings, &Settings::responseTextColorHexChanged, this,
            &SettingsModel::showTextColor);
    showTextColor();
}

void SettingsModel::setPrompts(PromptPresets &presets)
{
    m_promptRows = std::make_unique<PromptRows>(presets);
    Q_EMIT promptRowsChanged();
}

void SettingsModel::setThreads(ThreadLibrary &library, HistoryController &history)
{
    m_threads = std::make_unique<ThreadStorage>(m_settings, library, history, m_vocabulary);
    Q_EMIT threadsChanged();
}

void SettingsModel::setOpen(bool isOpen)
{
    if (isOpen == m_isOpen)
        return;
    if (!isOpen && m_promptRows)
        m_promptRows->cancel();
    if (isOpen)
        restoreHexInput();
    if (m_threads)
        m_threads->setOpen(isOpen);
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

QString SettingsModel::modelHint() const
{
    return m_models.answererName() == givenAnswerer
               ? QStringLiteral("Choose which Claude model handles your requests.")
               : QStringLiteral("Choose which model handles your requests.");
}

QString SettingsModel::appearanceHint() const
{
    return QStringLiteral("Match your background: dark theme over dark apps, light theme over "
                          "documents or bright UIs. System follows ") +
           m_vocabulary.appearanceSetting + u'.';
}

QString SettingsModel::programVersion() const
{
    return QStringLiteral("Quellora ") + QLatin1StringView(AppConfig::appVersion);
}

void SettingsModel::setCaptureNote(const QString &note)
{
    if (note == m_captureNote)
        return;
    m_captureNote = note;
    Q_EMIT captureNoteChanged();
}

void SettingsModel::setScreenChoiceOffered(bool isOffered)
{
    if (isOffered == m_isScreenChoiceOffered)
        return;
    m_isScreenChoiceOffered = isOffered;
    Q_EMIT isScreenChoiceOfferedChanged();
}

void SettingsModel::setNoticeOffered(bool isOffered)
{
    if (isOffered == m_isNoticeOffered)
        return;
    m_isNoticeOffered = isOffered;
    Q_EMIT isNoticeOfferedChanged();
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

QString SettingsModel::textColorHex() const
{
    const QString stored = m_settings.responseTextColorHex().value_or(QString());
    return isHexColor(stored) ? stored : QString();
}

void SettingsModel::storeTextColor(const QString &hex)
{
    m_settings.setResponseTextColorHex(hex.isEmpty() ? std::nullopt : std::optional(hex));
    // Needed even if the colour is unchanged, because then showTextColor() is not called.
    restoreHexInput();
}

void SettingsModel::showTextColor()
{
    m_textColors.setChosenHex(textColorHex());
    restoreHexInput();
}

void SettingsModel::restoreHexInput()
{
    setHexError(QString());
    setHexInput(textColorHex());
}

void SettingsModel::close()
{
    if (m_isOpen)
        Q_EMIT closeRequested();
}

void SettingsModel::chooseTextColor(int row)
{
    if (row >= 0 && row < m_textColors.rowCount())
        storeTextColor(m_textColors.hexAt(row));
}

void SettingsModel::commitHexInput()
{
    const std::optional<QString> hex = TextColors::normalizedHex(m_hexInput);
    if (!hex) {
        setHexError(QStringLiteral("Enter a valid hex color, e.g. #8899aa"));
        return;
    }
    storeTextColor(*hex);
}

void SettingsModel::leaveHexInput()
{
    if (m_hexInput.trimmed().isEmpty() || m_hexInput == textColorHex())
        restoreHexInput();
    else
        commitHexInput();
}

} // namespace quellora
