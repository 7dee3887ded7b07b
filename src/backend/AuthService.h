#pragma once

#include "backend/Records.h"
#include "base/AppConfig.h"

#include <QFuture>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QObject>

#include <functional>
#include <optional>

namespace quellora {

struct HttpAnswer;

using LoginResult = tl::expected<LoginResponse, AuthError>;

/// Signs in with e-mail and password, verifies tokens, and holds the session in memory only.
/// Main thread, non-blocking. Failures are logged once and never retried.
///
/// Cancelling a future or deleting the service aborts the call: nothing is stored or logged.
class AuthService : public QObject
{
    Q_OBJECT
public:
    using DeviceFieldsProvider = std::function<DeviceFields()>;

    AuthService(QNetworkAccessManager &network, BackendEndpoints endpoints,
                DeviceFieldsProvider device, QObject *parent = nullptr);

    /// Signs in. On success the token and configuration are stored before the future finishes; on
    /// failure both are unchanged. The future finishes on the main thread.
    virtual QFuture<LoginResult> login(const QString &email, const QString &password);
    /// Verifies @p token; stores and reports like login().
    virtual QFuture<LoginResult> verify(const QString &token);

    std::optional<QString> sessionToken() const { return m_sessionToken; }
    const std::optional<AppConfigResponse> &currentConfig() const { return m_currentConfig; }
    void setSession(const QString &token, const AppConfigResponse &config);
    void clearSession();

private:
    QFuture<LoginResult> post(const QNetworkRequest &request, const QByteArray &body,
                              const QString &failurePrefix, const QString &unauthorizedReason,
                              const QString &successLine);
    LoginResult classify(const HttpAnswer &answer, const QString &failurePrefix,
                         const QString &unauthorizedReason, const QString &successLine);

    QNetworkAccessManager &m_network;
    BackendEndpoints m_endpoints;
    DeviceFieldsProvider m_device;
    std::optional<QString> m_sessionToken;
    std::optional<AppConfigResponse> m_currentConfig;
};

} // namespace quellora
