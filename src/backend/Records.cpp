#include "backend/Records.h"

#include "base/Json.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace quellora {

namespace {

/// Reads typed members of one JSON object and records the first error.
class RecordReader
{
public:
    explicit RecordReader(const QJsonValue &value, const char *record) : m_object(value.toObject())
    {
        if (!value.isObject())
            m_error = QStringLiteral("%1 is not an object").arg(record);
    }

    void required(const char *key, QString &target) { read(key, target, true); }
    void required(const char *key, qint64 &target) { read(key, target, true); }
    void required(const char *key, bool &target) { read(key, target, true); }

    template <typename T>
    void optional(const char *key, std::optional<T> &target)
    {
        if (isAbsent(key))
            return;
        T value{};
        read(key, value, false);
        target = value;
    }

    bool isAbsent(const char *key) const
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        return value.isUndefined() || value.isNull();
    }

    QJsonValue value(const char *key) const { return m_object.value(QLatin1String(key)); }

    void fail(const QString &description)
    {
        if (m_error.isEmpty())
            m_error = description;
    }

    const QString &error() const { return m_error; }

private:
    void read(const char *key, QString &target, bool required)
    {
        const QJsonValue found = value(key);
        if (found.isString())
            target = found.toString();
        else
            mismatch(key, required, "a string");
    }

    void read(const char *key, qint64 &target, bool required)
    {
        const QJsonValue found = value(key);
        const double number = found.toDouble();
        // 2^63: the first double beyond the range of a signed 64-bit integer.
        constexpr double limit = 9223372036854775808.0;
        if (found.isDouble() && std::trunc(number) == number && number >= -limit && number < limit)
            target = found.toInteger(static_cast<qint64>(number));
        else
            mismatch(key, required, "an integer");
    }

    void read(const char *key, bool &target, bool required)
    {
        const QJsonValue found = value(key);
        if (found.isBool())
            target = found.toBool();
        else
            mismatch(key, required, "a boolean");
    }

    void mismatch(const char *key, bool required, const char *expected)
    {
        fail(required && isAbsent(key) ? QStringLiteral("the key \"%1\" is missing").arg(key)
                                       : QStringLiteral("the key \"%1\" is not %2")
                                             .arg(QLatin1String(key), QLatin1String(expected)));
    }

    QJsonObject m_object;
    QString m_error;
};

template <typename T>
Decoded<T> finish(const RecordReader &reader, T record)
{
    if (!reader.error().isEmpty())
        return tl::unexpected(DecodingError{reader.error()});
    return record;
}

template <typename T>
void insertIfPresent(QJsonObject &object, const char *key, const std::optional<T> &value)
{
    if (value)
        object.insert(QLatin1String(key), *value);
}

/// Whether @p text is a host name or address and nothing else. Longer or other texts could pretend
/// to be a part of the panel.
bool isHostName(const QString &text)
{
    constexpr qsizetype longest = 253;
    return !text.isEmpty() && text.size() <= longest &&
           std::all_of(text.begin(), text.end(), [](QChar c) {
               return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
                      (c >= u'0' && c <= u'9') || QStringLiteral(".-_:[]").contains(c);
           });
}

bool isLoopbackHost(const QString &host)
{
    static const QRegularExpression loopback(
        QStringLiteral("^(localhost|127(\\.[0-9]{1,3}){3}|::1|\\[::1\\])$"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::DontCaptureOption);
    return loopback.match(host).hasMatch();
}

QJsonObject deviceObject(const DeviceFields &device)
{
    QJsonObject hotkeys;
    for (auto it = device.hotkeys.begin(); it != device.hotkeys.end(); ++it)
        hotkeys.insert(it.key(), it.value());
    return {{QStringLiteral("osVersion"), device.osVersion},
            {QStringLiteral("hotkeys"), hotkeys},
            {QStringLiteral("cpuArch"), device.cpuArch}};
}

} // namespace

Decoded<ModelOption> ModelOption::fromJson(const QJsonValue &value)
{
    RecordReader reader(value, "a model");
    ModelOption model;
    reader.required("id", model.id);
    reader.required("displayName", model.displayName);
    reader.required("descriptor", model.descriptor);
    // A backend's mistake in this hint must not cost the sign-in.
    const QString destination = reader.value("destination").toString();
    if (isHostName(destination))
        model.destination = destination.toLower();
    return finish(reader, model);
}

QJsonObject ModelOption::toJson() const
{
    QJsonObject object{{QStringLiteral("id"), id},
                       {QStringLiteral("displayName"), displayName},
                       {QStringLiteral("descriptor"), descriptor}};
    if (!destination.isEmpty())
        object.insert(QStringLiteral("destination"), destination);
    return object;
}

QString destinationName(const QString &host, const QUrl &backend)
{
    if (host.isEmpty() || !isLoopbackHost(host))
        return host;
    // The backend's own machine.
    const QString place = backend.host();
    return place.isEmpty() || isLoopbackHost(place) ? QStringLiteral("this machine") : place;
}

size_t qHash(const ModelOption &model, size_t seed) noexcept
{
    return qHashMulti(seed, model.id, model.displayName, model.descriptor, model.destination);
}

Decoded<AdminMessagePayload> AdminMessagePayload::fromJson(const QJsonValue &value)
{
    RecordReader reader(value, "adminMessage");
    AdminMessagePayload message;
    reader.required("id", message.id);
    reader.required("type", message.type);
    reader.required("headerText", message.headerText);
    reader.required("bodyMarkdown", message.bodyMarkdown);
    reader.optional("actionLabel", message.actionLabel);
    reader.optional("actionUrl", message.actionUrl);
    reader.optional("forceUpdateInMinutes", message.forceUpdateInMinutes);
    return finish(reader, message);
}

QJsonObject AdminMessagePayload::toJson() const
{
    QJsonObject object{{QStringLiteral("id"), id},
                       {QStringLiteral("type"), type},
                       {QStringLiteral("headerText"), headerText},
                       {QStringLiteral("bodyMarkdown"), bodyMarkdown}};
    insertIfPresent(object, "actionLabel", actionLabel);
    insertIfPresent(object, "actionUrl", actionUrl);
    insertIfPresent(object, "forceUpdateInMinutes", forceUpdateInMinutes);
    return object;
}

Decoded<AppConfigResponse> AppConfigResponse::fromJson(const QJsonValue &value)
{
    RecordReader reader(value, "config");
    AppConfigResponse config;
    reader.required("model", config.model);
    if (const QJsonValue models = reader.value("availableModels"); models.isArray()) {
        const QJsonArray entries = models.toArray();
        for (const QJsonValue &entry : entries) {
            if (const auto model = ModelOption::fromJson(entry))
                config.availableModels.append(*model);
            else
                reader.fail(QStringLiteral("availableModels: ") + model.error().description);
        }
    } else {
        reader.fail(QStringLiteral("the key \"availableModels\" is missing or not an array"));
    }
    reader.required("defaultPrompt", config.defaultPrompt);
    reader.required("minimumAppVersion", config.minimumAppVersion);
    reader.required("tokensUsed", config.tokensUsed);
    reader.required("tokensRemaining", config.tokensRemaining);
    reader.required("tokenCap", config.tokenCap);
    reader.required("usageWarning75", config.usageWarning75);
    reader.required("usageWarning90", config.usageWarning90);
    reader.required("plan", config.plan);
    reader.required("subscriptionStatus", config.subscriptionStatus);
    std::optional<qint64> interval;
    reader.optional("heartbeatIntervalSeconds", interval);
    config.heartbeatIntervalSeconds = interval.value_or(86400);
    if (!reader.isAbsent("adminMessage")) {
        if (const auto message = AdminMessagePayload::fromJson(reader.value("adminMessage")))
            config.adminMessage = *message;
        else
            reader.fail(QStringLiteral("adminMessage: ") + message.error().description);
    }
    reader.optional("requestLogs", config.requestLogs);
    reader.optional("debugLogging", config.debugLogging);
    config.connectModel = reader.value("connectModel").toBool();
    return finish(reader, config);
}

QJsonObject AppConfigResponse::toJson() const
{
    QJsonArray models;
    for (const ModelOption &option : availableModels)
        models.append(option.toJson());
    QJsonObject object{
        {QStringLiteral("model"), model},
        {QStringLiteral("availableModels"), models},
        {QStringLiteral("defaultPrompt"), defaultPrompt},
        {QStringLiteral("minimumAppVersion"), minimumAppVersion},
        {QStringLiteral("tokensUsed"), tokensUsed},
        {QStringLiteral("tokensRemaining"), tokensRemaining},
        {QStringLiteral("tokenCap"), tokenCap},
        {QStringLiteral("usageWarning75"), usageWarning75},
        {QStringLiteral("usageWarning90"), usageWarning90},
        {QStringLiteral("plan"), plan},
        {QStringLiteral("subscriptionStatus"), subscriptionStatus},
        {QStringLiteral("heartbeatIntervalSeconds"), heartbeatIntervalSeconds},
    };
    if (adminMessage)
        object.insert(QStringLiteral("adminMessage"), adminMessage->toJson());
    insertIfPresent(object, "requestLogs", requestLogs);
    insertIfPresent(object, "debugLogging", debugLogging);
    if (connectModel)
        object.insert(QStringLiteral("connectModel"), true);
    return object;
}

Decoded<LoginResponse> LoginResponse::fromJson(const QJsonValue &value)
{
    RecordReader reader(value, "the response");
    LoginResponse response;
    reader.required("token", response.token);
    reader.required("sessionId", response.sessionId);
    if (reader.isAbsent("config"))
        reader.fail(QStringLiteral("the key \"config\" is missing"));
    else if (const auto config = AppConfigResponse::fromJson(reader.value("config")))
        response.config = *config;
    else
        reader.fail(config.error().description);
    return finish(reader, response);
}

Decoded<LoginResponse> LoginResponse::decode(const QByteArray &body)
{
    const auto object = parseJsonObject(body);
    if (!object)
        return tl::unexpected(DecodingError{object.error()});
    return fromJson(*object);
}

QJsonObject LoginResponse::toJson() const
{
    return {{QStringLiteral("token"), token},
            {QStringLiteral("sessionId"), sessionId},
            {QStringLiteral("config"), config.toJson()}};
}

QByteArray encodeLoginRequest(const QString &email, const QString &password,
                              const DeviceFields &device)
{
    QJsonObject object = deviceObject(device);
    object.insert(QStringLiteral("email"), email);
    object.insert(QStringLiteral("password"), password);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray encodeVerifyRequest(const DeviceFields &device)
{
    return QJsonDocument(deviceObject(device)).toJson(QJsonDocument::Compact);
}

QString AuthError::description() const
{
    switch (kind) {
    case Kind::InvalidCredentials:
        return QStringLiteral("Invalid email or password");
    case Kind::AccountSuspended:
        return QStringLiteral("Your account has been suspended. Contact support.");
    case Kind::DecodingError:
        return QStringLiteral("Unexpected response from server");
    case Kind::NetworkError:
        break;
    }
    return QStringLiteral("Connection error (%1). Check your internet connection.").arg(status);
}

} // namespace quellora
