#pragma once

#include "base/UserDefaults.h"

#include <QVariant>

#include <memory>

namespace quellora {

/// The system's key-value store for the program's preferences. Main thread only.
class PreferenceStore
{
public:
    virtual ~PreferenceStore() = default;
    /// A bool, a QString or a QVariantMap of those; a valid variant of another type for other kinds
    /// of values; invalid when the key is absent.
    virtual QVariant value(const QString &key) const = 0;
    /// @param value a bool, a QString or a QVariantMap of strings
    virtual void setValue(const QString &key, const QVariant &value) = 0;
    virtual void removeValue(const QString &key) = 0;
    /// Blocks until everything is stored.
    /// @return whether that succeeded
    virtual bool synchronize() = 0;
};

/// UserDefaults over the system's preferences store, which persists itself.
class PreferencesUserDefaults : public UserDefaults
{
    Q_OBJECT
public:
    explicit PreferencesUserDefaults(std::unique_ptr<PreferenceStore> store,
                                     QObject *parent = nullptr);
    /// Flushes the store.
    ~PreferencesUserDefaults() override;

    std::optional<bool> boolValue(const QString &key) const override;
    std::optional<QString> stringValue(const QString &key) const override;
    std::optional<QMap<QString, QString>> stringDictionary(const QString &key) const override;
    void setBool(const QString &key, bool value) override;
    void setString(const QString &key, const QString &value) override;
    void setStringDictionary(const QString &key, const QMap<QString, QString> &value) override;
    void remove(const QString &key) override;
    void flush() override;

private:
    void store(const QString &key, const QVariant &value);

    std::unique_ptr<PreferenceStore> m_store;
};

} // namespace quellora
