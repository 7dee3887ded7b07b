#include "platform/macos/PreferencesUserDefaults.h"

#include "base/Log.h"

#include <utility>

namespace quellora {
namespace {

bool holds(const QVariant &value, QMetaType::Type type)
{
    return value.typeId() == type;
}

} // namespace

PreferencesUserDefaults::PreferencesUserDefaults(std::unique_ptr<PreferenceStore> store,
                                                 QObject *parent)
    : UserDefaults(parent), m_store(std::move(store))
{}

PreferencesUserDefaults::~PreferencesUserDefaults()
{
    flush();
}

std::optional<bool> PreferencesUserDefaults::boolValue(const QString &key) const
{
    const QVariant value = m_store->value(key);
    return holds(value, QMetaType::Bool) ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<QString> PreferencesUserDefaults::stringValue(const QString &key) const
{
    const QVariant value = m_store->value(key);
    return holds(value, QMetaType::QString) ? std::optional(value.toString()) : std::nullopt;
}

std::optional<QMap<QString, QString>>
PreferencesUserDefaults::stringDictionary(const QString &key) const
{
    const QVariant value = m_store->value(key);
    if (!holds(value, QMetaType::QVariantMap))
        return std::nullopt;
    QMap<QString, QString> entries;
    const QVariantMap map = value.toMap();
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (holds(it.value(), QMetaType::QString))
            entries.insert(it.key(), it.value().toString());
    }
    return entries;
}

void PreferencesUserDefaults::setBool(const QString &key, bool value)
{
    store(key, value);
}

void PreferencesUserDefaults::setString(const QString &key, const QString &value)
{
    // Stores a null string as an empty one.
    store(key, value.isNull() ? QStringLiteral("") : value);
}

void PreferencesUserDefaults::setStringDictionary(const QString &key,
                                                  const QMap<QString, QString> &value)
{
    QVariantMap map;
    for (auto it = value.begin(); it != value.end(); ++it)
        map.insert(it.key(), it.value());
    store(key, map);
}

void PreferencesUserDefaults::store(const QString &key, const QVariant &value)
{
    // Variants of different types may compare equal.
    const QVariant before = m_store->value(key);
    if (before.typeId() == value.typeId() && before == value)
        return;
    m_store->setValue(key, value);
    Q_EMIT changed(key);
}

void PreferencesUserDefaults::remove(const QString &key)
{
    if (!m_store->value(key).isValid())
        return;
    m_store->removeValue(key);
    Q_EMIT changed(key);
}

void PreferencesUserDefaults::flush()
{
    if (!m_store->synchronize())
        Log::event(
            QStringLiteral("[UserDefaults] ERROR: The system did not store the preferences"));
}

} // namespace quellora
