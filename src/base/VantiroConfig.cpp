#include "base/VantiroConfig.h"

#include "base/Json.h"
#include "base/Log.h"
#include "base/ProjectPaths.h"

#include <QFile>
#include <QJsonObject>

namespace quellora {

namespace {

const QString fileName = QStringLiteral("config.json");

/// Reads typed members of one JSON object and records the first error.
class ObjectReader
{
public:
    ObjectReader(const QJsonObject &object, QString path, QString *error)
        : m_object(object), m_path(std::move(path)), m_error(error)
    {}

    void required(const char *key, QString &target)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (value.isString())
            target = value.toString();
        else
            fail(key, "a string");
    }

    void required(const char *key, double &target)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (value.isDouble())
            target = value.toDouble();
        else
            fail(key, "a number");
    }

    /// Whether there is a value other than null.
    bool has(const char *key) const
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        return !value.isUndefined() && !value.isNull();
    }

private:
    void fail(const char *key, const char *expected)
    {
        if (!m_error->isEmpty())
            return;
        const QString name = m_path + QLatin1String(key);
        *m_error = has(key) ? QStringLiteral("the key \"%1\" is not %2").arg(name, expected)
                            : QStringLiteral("the key \"%1\" is missing").arg(name);
    }

    QJsonObject m_object;
    QString m_path;
    QString *m_error;
};

} // namespace

std::optional<VantiroConfig>
VantiroConfig::decode(const QByteArray &json, const QList<HotkeyKey> &hotkeyKeys, QString *error)
{
    error->clear();
    const auto parsed = parseJsonObject(json);
    if (!parsed) {
        *error = parsed.error();
        return std::nullopt;
    }
    const QJsonObject &root = *parsed;
    for (const char *section : {"hotkeys", "overlay"}) {
        if (!root.value(QLatin1String(section)).isObject()) {
            *error = QStringLiteral("the key \"%1\" is missing or not an object").arg(section);
            return std::nullopt;
        }
    }

    VantiroConfig config;
    ObjectReader hotkeys(root.value(QLatin1String("hotkeys")).toObject(),
                         QStringLiteral("hotkeys."), error);
    for (const HotkeyKey &key : hotkeyKeys) {
        if (key.isRequired || hotkeys.has(key.name))
            hotkeys.required(key.name, config.hotkeys[key.name]);
    }

    ObjectReader overlay(root.value(QLatin1String("overlay")).toObject(),
                         QStringLiteral("overlay."), error);
    overlay.required("x", config.overlay.x);
    overlay.required("y", config.overlay.y);
    overlay.required("width", config.overlay.width);
    overlay.required("height", config.overlay.height);
    overlay.required("default_opacity", config.overlay.defaultOpacity);

    if (!error->isEmpty())
        return std::nullopt;
    return config;
}

VantiroConfig VantiroConfig::load(const QList<HotkeyKey> &hotkeyKeys)
{
    return load(ProjectPaths::projectRoot(), hotkeyKeys);
}

VantiroConfig VantiroConfig::load(const std::optional<QDir> &folder,
                                  const QList<HotkeyKey> &hotkeyKeys)
{
    if (!folder) {
        Log::event(QStringLiteral("[Config] config.json not found, using built-in defaults"));
        return {};
    }
    const QString path = folder->filePath(fileName);
    QFile file(path);
    QString error;
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
    } else if (const auto config = decode(file.readAll(), hotkeyKeys, &error)) {
        Log::event(QStringLiteral("[Config] Loaded ") + path);
        return *config;
    }
    Log::event(QStringLiteral("[Config] Failed to parse ") + path + QStringLiteral(": ") + error +
               QStringLiteral(". Using built-in defaults"));
    return {};
}

} // namespace quellora
