#pragma once

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <optional>

namespace quellora {

/// Names of the stored preferences.
namespace DefaultsKey {
inline constexpr auto keepAIHistoryEnabled = "keepAIHistoryEnabled";
inline constexpr auto startNewThreadPerSendEnabled = "startNewThreadPerSendEnabled";
inline constexpr auto dontClearPromptAfterSendEnabled = "dontClearPromptAfterSendEnabled";
inline constexpr auto selectedModelId = "selectedModelId";
inline constexpr auto appearance = "com.quellora.app.appearance";
inline constexpr auto responseTextColorHex = "responseTextColorHex";
inline constexpr auto userPrompt = "userPrompt";
inline constexpr auto hasLaunchedBefore = "hasLaunchedBefore";
inline constexpr auto hotkeyBindings = "hotkeyBindings";
inline constexpr auto captureAllScreens = "captureAllScreens";
} // namespace DefaultsKey

/// The user's stored preferences: a small typed key-value store.
///
/// A value of another type than asked for counts as absent. Every change is stored at once and
/// announced with changed(). Main thread only.
class UserDefaults : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual std::optional<bool> boolValue(const QString &key) const = 0;
    virtual std::optional<QString> stringValue(const QString &key) const = 0;
    /// Entries whose value is not a string are left out; absent when the key holds no dictionary.
    virtual std::optional<QMap<QString, QString>> stringDictionary(const QString &key) const = 0;

    virtual void setBool(const QString &key, bool value) = 0;
    virtual void setString(const QString &key, const QString &value) = 0;
    virtual void setStringDictionary(const QString &key, const QMap<QString, QString> &value) = 0;
    virtual void remove(const QString &key) = 0;

    /// Blocks until every change so far is stored (or failed and was logged).
    virtual void flush() = 0;

Q_SIGNALS:
    void changed(const QString &key);
};

/// UserDefaults over one JSON object, kept in memory and, when a path is given, in a file that is
/// replaced atomically after every change by a worker thread, so that typing never waits for the
/// disk; changes made while a write runs share the next one. A file that cannot be parsed is kept
/// aside with the extension ".damaged" and the store starts empty (one log line).
class JsonUserDefaults : public UserDefaults
{
    Q_OBJECT
public:
    /// @param path file to load and write; empty keeps everything in memory.
    explicit JsonUserDefaults(QString path = {}, QObject *parent = nullptr);
    /// Waits until everything is stored.
    ~JsonUserDefaults() override;

    /// `$XDG_CONFIG_HOME/Quellora/defaults.json`.
    static QString defaultPath();

    std::optional<bool> boolValue(const QString &key) const override;
    std::optional<QString> stringValue(const QString &key) const override;
    std::optional<QMap<QString, QString>> stringDictionary(const QString &key) const override;
    void setBool(const QString &key, bool value) override;
    void setString(const QString &key, const QString &value) override;
    void setStringDictionary(const QString &key, const QMap<QString, QString> &value) override;
    void remove(const QString &key) override;

    void flush() override;

    /// The raw stored object.
    const QJsonObject &values() const { return m_values; }

private:
    void load();
    void store(const QString &key, const QJsonValue &value);
    void scheduleWrite();
    static void writeFile(const QString &path, const QJsonObject &values);

    QString m_path;
    QJsonObject m_values;
    QThreadPool m_writer;
    bool m_isWriting = false;
    bool m_isDirty = false;
};

} // namespace quellora
