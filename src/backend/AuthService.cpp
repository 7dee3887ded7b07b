#include "backend/AuthService.h"

#include "app/Log.h"

#include <QNetworkReply>
#include <QPromise>

#include <memory>
#include <utility>

namespace quellora {

namespace {

constexpr int timeoutMs = 60'000;
/// A sign-in answer is a few kilobytes; anything far beyond it is not ours.
constexpr qint64 maxBodyBytes = 4 * 1024 * 1024;

QNetworkRequest makeRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(timeoutMs);
    // A redirect must never carry credentials elsewhere; it counts as an unexpected status.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    return request;
}

void addCommonHeaders(QNetworkRequest &request)
{
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("X-App-Version", AppConfig::appVersion);
}

} // namespace

AuthService::AuthService(QNetworkAccessManager &network, BackendEndpoints endpoints,
                         DeviceFieldsProvider device, QObject *parent)
    : QObject(parent)
    , m_network(network)
    , m_endpoints(std::move(endpoints))
    , m_device(std::move(device))
{}

QFuture<LoginResult> AuthService::login(const QString &email, const QString &password)
{
    QNetworkRequest request = makeRequest(m_endpoints.appLogin());
    addCommonHeaders(request);
    return post(request, encodeLoginRequest(email, password, m_device()),
                QStringLiteral("[AuthService] Login failed: "),
                QStringLiteral("invalid credentials"),
                QStringLiteral("[AuthService] Login successful"));
}

QFuture<LoginResult> AuthService::verify(const QString &token)
{
    QNetworkRequest request = makeRequest(m_endpoints.appVerify());
    request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
    addCommonHeaders(request);
    return post(request, encodeVerifyRequest(m_device()),
                QStringLiteral("[AuthService] Token verification failed: "),
                QStringLiteral("invalid or expired token"),
                QStringLiteral("[AuthService] Token verification successful"));
}

void AuthService::setSession(const QString &token, const AppConfigResponse &config)
{
    m_sessionToken = token;
    m_currentConfig = config;
}

void AuthService::clearSession()
{
    m_sessionToken.reset();
    m_currentConfig.reset();
}

QFuture<LoginResult> AuthService::post(const QNetworkRequest &request, const QByteArray &body,
                                       const QString &failurePrefix,
                                       const QString &unauthorizedReason,
                                       const QString &successLine)
{
    const auto promise = std::make_shared<QPromise<LoginResult>>();
    promise->start();
    QNetworkReply *reply = m_network.post(request, body);
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maxBodyBytes)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, promise, failurePrefix, unauthorizedReason, successLine] {
                reply->deleteLater();
                promise->addResult(
                    classify(*reply, failurePrefix, unauthorizedReason, successLine));
                promise->finish();
            });
    return promise->future();
}

LoginResult AuthService::classify(QNetworkReply &reply, const QString &failurePrefix,
                                  const QString &unauthorizedReason, const QString &successLine)
{
    const auto fail = [&failurePrefix](const QString &reason, AuthError error) -> LoginResult {
        Log::event(failurePrefix + reason);
        return tl::unexpected(error);
    };

    const QVariant statusValue = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const int status = statusValue.toInt();
    const bool transferFailed =
        reply.error() != QNetworkReply::NoError && (!statusValue.isValid() || status == 200);
    if (transferFailed)
        return fail(QStringLiteral("network error: ") + reply.errorString(),
                    AuthError::networkError(-1));
    if (!statusValue.isValid())
        return fail(QStringLiteral("response was not HTTP"), AuthError::networkError(-1));
    if (status == 403)
        return fail(QStringLiteral("account suspended"), AuthError::accountSuspended());
    if (status == 401)
        return fail(unauthorizedReason, AuthError::invalidCredentials());
    if (status != 200)
        return fail(QStringLiteral("unexpected status code %1").arg(status),
                    AuthError::networkError(status));

    auto response = LoginResponse::decode(reply.readAll());
    if (!response)
        return fail(QStringLiteral("could not decode response: ") + response.error().description,
                    AuthError::decodingError());
    setSession(response->token, response->config);
    Log::event(successLine);
    return *std::move(response);
}

} // namespace quellora
