#pragma once

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QUrl>

#include <tl/expected.hpp>

#include <optional>

namespace quellora {

/// Why a record could not be decoded, naming the offending key.
struct DecodingError
{
    QString description;
};

template <typename T>
using Decoded = tl::expected<T, DecodingError>;

/// One entry of the model picker.
struct ModelOption
{
    QString id;
    QString displayName;
    QString descriptor;
    /// The host that gets the questions and pictures, as the backend sees it; empty if the backend
    /// does not tell or tells something that is no host name.
    QString destination = {};

    bool operator==(const ModelOption &) const = default;
    static Decoded<ModelOption> fromJson(const QJsonValue &value);
    QJsonObject toJson() const;
};

/// Where @p host of a model is for the user of the backend at @p backend: "this machine", a host
/// name, or empty if unknown.
QString destinationName(const QString &host, const QUrl &backend);

size_t qHash(const ModelOption &model, size_t seed = 0) noexcept;

/// A message shown as a card above the prompt box, from the service operator or made locally.
struct AdminMessagePayload
{
    QString id;
    /// "BLOCKING" stops queries; every other value is informational.
    QString type;
    QString headerText;
    QString bodyMarkdown;
    std::optional<QString> actionLabel;
    std::optional<QString> actionUrl;
    std::optional<qint64> forceUpdateInMinutes;

    bool isBlocking() const { return type == QLatin1String("BLOCKING"); }
    bool operator==(const AdminMessagePayload &) const = default;
    static Decoded<AdminMessagePayload> fromJson(const QJsonValue &value);
    QJsonObject toJson() const;
};

/// The account's configuration as sent by the backend; values are not cross-checked.
struct AppConfigResponse
{
    QString model;
    QList<ModelOption> availableModels;
    QString defaultPrompt;
    QString minimumAppVersion;
    qint64 tokensUsed = 0;
    qint64 tokensRemaining = 0;
    qint64 tokenCap = 0;
    bool usageWarning75 = false;
    bool usageWarning90 = false;
    QString plan;
    QString subscriptionStatus;
    /// Seconds between configuration polls; one day when the backend omits it.
    qint64 heartbeatIntervalSeconds = 86400;
    std::optional<AdminMessagePayload> adminMessage;
    std::optional<bool> requestLogs;
    std::optional<bool> debugLogging;
    /// Whether nothing but a reader answers and this user can connect a model on the account page.
    bool connectModel = false;

    bool operator==(const AppConfigResponse &) const = default;
    static Decoded<AppConfigResponse> fromJson(const QJsonValue &value);
    QJsonObject toJson() const;
};

/// Response to sign-in and token verification.
struct LoginResponse
{
    QString token;
    QString sessionId;
    AppConfigResponse config;

    bool operator==(const LoginResponse &) const = default;
    static Decoded<LoginResponse> fromJson(const QJsonValue &value);
    /// Decodes a response body.
    static Decoded<LoginResponse> decode(const QByteArray &body);
    QJsonObject toJson() const;
};

/// Device information sent with sign-in and verification requests.
struct DeviceFields
{
    QString osVersion;
    /// Action key to combo string.
    QMap<QString, QString> hotkeys;
    QString cpuArch;
};

/// Body of a sign-in request, UTF-8 JSON.
QByteArray encodeLoginRequest(const QString &email, const QString &password,
                              const DeviceFields &device);
/// Body of a verification request, UTF-8 JSON. The token is sent in the header only.
QByteArray encodeVerifyRequest(const DeviceFields &device);

/// Why signing in or verifying failed; description() is shown to the user verbatim.
struct AuthError
{
    enum class Kind { InvalidCredentials, AccountSuspended, DecodingError, NetworkError };

    Kind kind = Kind::NetworkError;
    /// HTTP status, or -1 without an HTTP response. Only for NetworkError.
    int status = -1;

    static AuthError invalidCredentials() { return {Kind::InvalidCredentials, -1}; }
    static AuthError accountSuspended() { return {Kind::AccountSuspended, -1}; }
    static AuthError decodingError() { return {Kind::DecodingError, -1}; }
    static AuthError networkError(int status) { return {Kind::NetworkError, status}; }

    QString description() const;
    bool operator==(const AuthError &) const = default;
};

} // namespace quellora

Q_DECLARE_METATYPE(quellora::AppConfigResponse)
