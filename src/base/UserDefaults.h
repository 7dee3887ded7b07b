#pragma once

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <memory>
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

    /// Blocks until every change so far is stored. What could not be stored before is tried once
    /// more; a failure is logged.
    virtual void flush() = 0;

Q_SIGNALS:
    void changed(const QString &key);
};

/// UserDefaults over one JSON object, kept in memory and, when a path is given, in a file that is
/// replaced atomically after every change by a worker thread, so that typing never waits for the
/// disk; changes made while a write runs share the next one. A write that fails is tried again, at
/// longer and longer intervals, and at flush(); each reason is logged once. A file that cannot be
/// parsed is kept aside with the extension ".damaged" and the store starts empty (one log line).
class JsonUserDefaults : public UserDefaults
{
    Q_OBJECT
public:
    /// @param path file to load and write; empty keeps everything in memory.
    /// @param retryDelay from a failed write to the next attempt; doubles up to a minute
    explicit JsonUserDefaults(QString path = {}, QObject *parent = nullptr,
                              std::chrono::milliseconds retryDelay = std::chrono::seconds(1));
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
    /// One write on the worker.
    struct Write
    {
        /// Why it failed; empty when it did not.
        QString problem;
    };

    void load();
    void store(const QString &key, const QJsonValue &value);
    void scheduleWrite();
    void finish(const std::shared_ptr<Write> &write);
    void report(const QString &problem);
    static QString writeFile(const QString &path, const QJsonObject &values);

    QString m_path;
    QJsonObject m_values;
    QThreadPool m_writer;
    /// The write under way.
    std::shared_ptr<Write> m_writing;
    /// The file lacks something that m_values has, beyond the write under way.
    bool m_isDirty = false;
    /// Runs while a failed write waits for its next attempt.
    QTimer m_retry;
    std::chrono::milliseconds m_firstRetryDelay;
    /// Why the last write failed; empty when it did not.
    QString m_problem;
};

} // namespace quellora
