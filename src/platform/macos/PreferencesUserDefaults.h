#pragma once

#include "base/UserDefaults.h"

#include <QVariant>

#include <memory>

namespace quellora {

/// The system's store of one program's preferences: values by key. Main thread only.
class PreferenceStore
{
public:
    virtual ~PreferenceStore() = default;
    /// A bool, a QString, a QVariantMap (its values alike) or, for what a program like this one
    /// never stores, something else that is valid; invalid when there is nothing.
    virtual QVariant value(const QString &key) const = 0;
    /// @param value a bool, a QString or a QVariantMap of strings
    virtual void setValue(const QString &key, const QVariant &value) = 0;
    virtual void removeValue(const QString &key) = 0;
    /// Blocks until everything is stored.
    /// @return whether it is
    virtual bool synchronize() = 0;
};

/// UserDefaults over the system's own preferences, which keep themselves on the disk.
class PreferencesUserDefaults : public UserDefaults
{
    Q_OBJECT
public:
    explicit PreferencesUserDefaults(std::unique_ptr<PreferenceStore> store,
                                     QObject *parent = nullptr);
    /// Waits until everything is stored.
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
