#include "base/AppConfig.h"

#include "base/Log.h"

#include <utility>

namespace quellora {

BackendEndpoints::BackendEndpoints(QString baseURL) : m_base(std::move(baseURL)) {}

QUrl BackendEndpoints::url(const char *suffix) const
{
    const QString text = m_base + QLatin1String(suffix);
    const QUrl parsed(text, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        qFatal("Backend address is not a valid URL: %s", qUtf8Printable(text));
    return parsed;
}

QUrl BackendEndpoints::googleLogin() const
{
    const QByteArray suffix =
        "/login?callback=http://127.0.0.1:" + QByteArray::number(AppConfig::oauthCallbackPort) +
        "/oauth-callback";
    return url(suffix.constData());
}

const QString &AppConfig::backendBaseURL()
{
    static const QString base = resolveBackendBaseURL(qEnvironmentVariable("QUELLORA_BACKEND_URL"));
    return base;
}

const BackendEndpoints &AppConfig::endpoints()
{
    static const BackendEndpoints endpoints(backendBaseURL());
    return endpoints;
}

QString AppConfig::resolveBackendBaseURL(const QString &override)
{
    if (!override.isEmpty()) {
        Log::event(QStringLiteral("[AppConfig] Using QUELLORA_BACKEND_URL override: ") + override);
        return override;
    }
    Log::event(
        QStringLiteral("[AppConfig] QUELLORA_BACKEND_URL not set, defaulting to production"));
    return QStringLiteral(QUELLORA_PRODUCTION_BASE_URL);
}

QString AppConfig::formatCredits(qint64 tokens)
{
    const qint64 credits = tokens / 100;
    if (tokens < 100000)
        return QString::number(credits);
    return QString::number(credits / 1000) + QLatin1Char('K');
}

} // namespace quellora
