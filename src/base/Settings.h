#pragma once

#include "base/UserDefaults.h"

#include <QMetaEnum>
#include <QObject>
#include <QString>

#include <optional>
#include <utility>

namespace quellora {

/// Declares one setting: a property with getter, setter and change signal.
///
/// @param Type bool, QString, an enumeration of Settings (stored as its key with a lower-case first
///        letter), or std::optional<QString> for a text without a default: setting nothing removes
///        it. QML can bind to all but the last.
/// @param name, Name the property's name, for getter and setter
/// @param key the storage key
/// @param fallback the value while the store holds none, or none of this type
#define QUELLORA_SETTING(Type, name, Name, key, fallback)                                          \
    Q_PROPERTY(Type name READ name WRITE set##Name NOTIFY name##Changed)                           \
public:                                                                                            \
    Type name() const                                                                              \
    {                                                                                              \
        return m_##name;                                                                           \
    }                                                                                              \
    void set##Name(const Type &value)                                                              \
    {                                                                                              \
        store(key, value);                                                                         \
    }                                                                                              \
    Q_SIGNAL void name##Changed();                                                                 \
                                                                                                   \
private:                                                                                           \
    Type m_##name = follow<Type>(key, fallback, &Settings::m_##name, &Settings::name##Changed)

/// The user's settings over UserDefaults. A change is stored at once and announced by the
/// property's signal, also when it is made in the store directly; what leaves the value as it is
/// announces nothing. Main thread only.
///
/// To add a setting, add a line to the table and bind the view that shows it.
class Settings : public QObject
{
    Q_OBJECT

    UserDefaults &m_defaults;

public:
    enum class Appearance { Light, Dark, System };
    Q_ENUM(Appearance)

    /// @param defaults must outlive the settings
    explicit Settings(UserDefaults &defaults, QObject *parent = nullptr)
        : QObject(parent), m_defaults(defaults)
    {}

    /// "Save thread": threads are kept on disk.
    QUELLORA_SETTING(bool, keepAIHistoryEnabled, KeepAIHistoryEnabled, "keepAIHistoryEnabled",
                     false);
    /// Each Send begins a thread of its own.
    QUELLORA_SETTING(bool, startNewThreadPerSendEnabled, StartNewThreadPerSendEnabled,
                     "startNewThreadPerSendEnabled", false);
    /// The prompt box keeps its text when it is sent.
    QUELLORA_SETTING(bool, dontClearPromptAfterSendEnabled, DontClearPromptAfterSendEnabled,
                     "dontClearPromptAfterSendEnabled", false);
    /// The user's own choice; empty for none. Which model answers depends on the offer, too.
    QUELLORA_SETTING(QString, selectedModelId, SelectedModelId, "selectedModelId", QString());
    /// System follows the desktop.
    QUELLORA_SETTING(Appearance, appearance, Appearance, "com.quellora.app.appearance",
                     Appearance::System);
    /// Nothing for the theme's own colour. The store may hold a text that is no colour.
    QUELLORA_SETTING(std::optional<QString>, responseTextColorHex, ResponseTextColorHex,
                     "responseTextColorHex", std::nullopt);
    /// The prompt box's text. An emptied box is not the same as one that was never edited.
    QUELLORA_SETTING(std::optional<QString>, userPrompt, UserPrompt, "userPrompt", std::nullopt);
    /// The first-launch card has been acknowledged.
    QUELLORA_SETTING(bool, hasLaunchedBefore, HasLaunchedBefore, "hasLaunchedBefore", false);
    /// A capture shows all screens instead of the one with the pointer.
    QUELLORA_SETTING(bool, captureAllScreens, CaptureAllScreens, "captureAllScreens", false);
    /// "Look before sending": a capture is shown before it is sent.
    QUELLORA_SETTING(bool, lookBeforeSending, LookBeforeSending, "lookBeforeSending", false);
    /// The part of a screen that was captured last, as its owner writes it; empty for none.
    QUELLORA_SETTING(QString, lastCaptureRegion, LastCaptureRegion, "lastCaptureRegion", QString());
    /// The end of an answer is announced on the desktop while the panel is hidden.
    QUELLORA_SETTING(bool, notifyWhenAnswerReady, NotifyWhenAnswerReady, "notifyWhenAnswerReady",
                     false);
    /// The panel starts where it was with the same screens, in that size and opacity.
    QUELLORA_SETTING(bool, startsWhereLeft, StartsWhereLeft, "startsWhereLeft", true);
    /// Size of the answer's text in percent; empty for the normal size. The store may hold a text
    /// that is no size.
    QUELLORA_SETTING(QString, answerTextSize, AnswerTextSize, "answerTextSize", QString());
    /// Stored threads are deleted after this many days without a change; empty for never. The store
    /// may hold a text that is no number of days.
    QUELLORA_SETTING(QString, keepThreadsDays, KeepThreadsDays, "keepThreadsDays", QString());

private:
    bool stored(const char *key, bool fallback) const;
    QString stored(const char *key, const QString &fallback) const;
    std::optional<QString> stored(const char *key, const std::optional<QString> &fallback) const;
    template <typename Enum>
    Enum stored(const char *key, Enum fallback) const
    {
        return Enum(enumValue(key, QMetaEnum::fromType<Enum>(), int(fallback)));
    }
    int enumValue(const char *key, const QMetaEnum &type, int fallback) const;

    void store(const char *key, bool value);
    void store(const char *key, const QString &value);
    void store(const char *key, const std::optional<QString> &value);
    template <typename Enum>
    void store(const char *key, Enum value)
    {
        store(key, enumText(QMetaEnum::fromType<Enum>(), int(value)));
    }
    static QString enumText(const QMetaEnum &type, int value);

    /// Keeps @p value equal to what is stored, announcing changes; returns the first value.
    template <typename Type>
    Type follow(const char *key, const Type &fallback, Type Settings::*value,
                void (Settings::*changed)())
    {
        connect(&m_defaults, &UserDefaults::changed, this, [=, this](const QString &changedKey) {
            if (changedKey != QLatin1StringView(key))
                return;
            if (Type current = stored(key, fallback); current != this->*value) {
                this->*value = std::move(current);
                Q_EMIT(this->*changed)();
            }
        });
        return stored(key, fallback);
    }
};

#undef QUELLORA_SETTING

} // namespace quellora
