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

/// Storage keys that are not in the table of Settings.
namespace DefaultsKey {
inline constexpr auto hotkeyBindings = "hotkeyBindings";
/// Where the panel was, by arrangement of the screens.
inline constexpr auto panelPlaces = "panelPlaces";
/// The user's prompts: a JSON list as text.
inline constexpr auto promptPresets = "promptPresets";
/// Whether a command has run an action, so the user knows how to bind commands to keys.
inline constexpr auto actionCommandsUsed = "actionCommandsUsed";
} // namespace DefaultsKey

/// The store of the user's preferences: a small typed key-value store. Settings gives its values
/// their names, types and defaults.
///
/// A value of another type than requested counts as absent. Every change is stored immediately and
/// announced with changed(). Main thread only.
class UserDefaults : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual std::optional<bool> boolValue(const QString &key) const = 0;
    virtual std::optional<QString> stringValue(const QString &key) const = 0;
    /// Skips entries whose value is not a string; absent if the key holds no dictionary.
    virtual std::optional<QMap<QString, QString>> stringDictionary(const QString &key) const = 0;

    virtual void setBool(const QString &key, bool value) = 0;
    virtual void setString(const QString &key, const QString &value) = 0;
    virtual void setStringDictionary(const QString &key, const QMap<QString, QString> &value) = 0;
    virtual void remove(const QString &key) = 0;

    /// Blocks until all changes are stored, retrying earlier failures once. A failure is logged.
    virtual void flush() = 0;

Q_SIGNALS:
    void changed(const QString &key);
};

/// UserDefaults backed by one JSON object in memory and, if a path is given, a file.
///
/// A worker thread replaces the file atomically after every change; changes made during a write are
/// coalesced into the next one. A failed write is retried with exponential backoff and by flush();
/// consecutive identical errors are logged once. A file that cannot be parsed is renamed to
/// "….damaged" and the store starts empty (one log line).
class JsonUserDefaults : public UserDefaults
{
    Q_OBJECT
public:
    /// @param path file to load and write; empty for memory only
    /// @param retryDelay delay from a failed write to the next attempt; doubles up to one minute
    explicit JsonUserDefaults(QString path = {}, QObject *parent = nullptr,
                              std::chrono::milliseconds retryDelay = std::chrono::seconds(1));
    /// Calls flush().
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
        /// Empty on success.
        QString error;
    };

    void load();
    void store(const QString &key, const QJsonValue &value);
    void scheduleWrite();
    void finish(const std::shared_ptr<Write> &write);
    void report(const QString &error);
    static QString writeFile(const QString &path, const QJsonObject &values);

    QString m_path;
    QJsonObject m_values;
    QThreadPool m_writer;
    /// The write in progress.
    std::shared_ptr<Write> m_writing;
    /// m_values has changes that neither the file nor the write in progress contains.
    bool m_isDirty = false;
    /// Active while a failed write waits for its next attempt.
    QTimer m_retry;
    std::chrono::milliseconds m_firstRetryDelay;
    /// Error of the last write; empty on success.
    QString m_lastError;
};

} // namespace quellora
