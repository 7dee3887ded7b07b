#include "base/Settings.h"

namespace quellora {

bool Settings::stored(const char *key, bool fallback) const
{
    return m_defaults.boolValue(QLatin1String(key)).value_or(fallback);
}

QString Settings::stored(const char *key, const QString &fallback) const
{
    return m_defaults.stringValue(QLatin1String(key)).value_or(fallback);
}

std::optional<QString> Settings::stored(const char *key,
                                        const std::optional<QString> &fallback) const
{
    const auto text = m_defaults.stringValue(QLatin1String(key));
    return text ? text : fallback;
}

int Settings::enumValue(const char *key, const QMetaEnum &type, int fallback) const
{
    const auto text = m_defaults.stringValue(QLatin1String(key));
    for (int i = 0; text && i < type.keyCount(); ++i) {
        if (*text == enumText(type, type.value(i)))
            return type.value(i);
    }
    return fallback;
}

QString Settings::enumText(const QMetaEnum &type, int value)
{
    const QString key = QString::fromLatin1(type.valueToKey(value));
    return key.left(1).toLower() + key.mid(1);
}

void Settings::store(const char *key, bool value)
{
    m_defaults.setBool(QLatin1String(key), value);
}

void Settings::store(const char *key, const QString &value)
{
    m_defaults.setString(QLatin1String(key), value);
}

void Settings::store(const char *key, const std::optional<QString> &value)
{
    if (value)
        m_defaults.setString(QLatin1String(key), *value);
    else
        m_defaults.remove(QLatin1String(key));
}

} // namespace quellora
