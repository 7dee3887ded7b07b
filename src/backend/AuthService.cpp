#include "backend/AuthService.h"

#include "base/Log.h"

#include "backend/Http.h"
#include "backend/HttpExchange.h"

#include <QFutureWatcher>
#include <QPromise>

#include <chrono>
#include <memory>
#include <utility>

namespace quellora {

namespace {

using namespace std::chrono_literals;

constexpr auto inactivityTimeout = 60s;
/// The total time-out also ends a response that arrives too slowly.
constexpr HttpExchange::Limits limits{200, 4 * 1024 * 1024, 180s};

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
    QNetworkRequest request = http::request(m_endpoints.appLogin(), inactivityTimeout);
    addCommonHeaders(request);
    return post(request, encodeLoginRequest(email, password, m_device()),
                QStringLiteral("[AuthService] Login failed: "),
                QStringLiteral("invalid credentials"),
                QStringLiteral("[AuthService] Login successful"));
}

QFuture<LoginResult> AuthService::verify(const QString &token)
{
    const QByteArray bearer = token.toUtf8();
    const QString failurePrefix = QStringLiteral("[AuthService] Token verification failed: ");
    if (!http::isHeaderValue(bearer)) {
        Log::event(failurePrefix + QStringLiteral("network error: ") + http::badTokenText());
        return QtFuture::makeReadyFuture<LoginResult>(tl::unexpected(AuthError::networkError(-1)));
    }
    QNetworkRequest request = http::request(m_endpoints.appVerify(), inactivityTimeout);
    request.setRawHeader("Authorization", "Bearer " + bearer);
    addCommonHeaders(request);
    return post(request, encodeVerifyRequest(m_device()), failurePrefix,
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
    auto *exchange = new HttpExchange(http::postOnce(m_network, request, body), limits, this);
    connect(
        exchange, &HttpExchange::finished, this,
        [this, promise, failurePrefix, unauthorizedReason, successLine](const HttpAnswer &answer) {
            if (promise->isCanceled())
                return;
            promise->addResult(classify(answer, failurePrefix, unauthorizedReason, successLine));
            promise->finish();
        });
    // Cancelling the future aborts the transfer.
    auto *watcher = new QFutureWatcher<LoginResult>(exchange);
    connect(watcher, &QFutureWatcherBase::canceled, exchange, &QObject::deleteLater);
    watcher->setFuture(promise->future());
    return promise->future();
}

LoginResult AuthService::classify(const HttpAnswer &answer, const QString &failurePrefix,
                                  const QString &unauthorizedReason, const QString &successLine)
{
    const auto fail = [&failurePrefix](const QString &reason, AuthError error) -> LoginResult {
        Log::event(failurePrefix + reason);
        return tl::unexpected(error);
    };

    if (answer.failure)
        return fail(QStringLiteral("network error: ") + *answer.failure,
                    AuthError::networkError(-1));
    switch (answer.status) {
    case 0:
        return fail(QStringLiteral("response was not HTTP"), AuthError::networkError(-1));
    case 403:
        return fail(QStringLiteral("account suspended"), AuthError::accountSuspended());
    case 401:
        return fail(unauthorizedReason, AuthError::invalidCredentials());
    case 200:
        break;
    default:
        return fail(QStringLiteral("unexpected status code %1").arg(answer.status),
                    AuthError::networkError(answer.status));
    }

    const QString undecodable = QStringLiteral("could not decode response: ");
    if (answer.isTooLong)
        return fail(undecodable +
                        QStringLiteral("it is longer than %1 bytes").arg(limits.bodyBytes),
                    AuthError::decodingError());
    auto response = LoginResponse::decode(answer.body);
    if (!response)
        return fail(undecodable + response.error().description, AuthError::decodingError());
    setSession(response->token, response->config);
    Log::event(successLine);
    return *std::move(response);
}

} // namespace quellora
