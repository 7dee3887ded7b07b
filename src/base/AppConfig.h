#pragma once

#include <QString>
#include <QUrl>

namespace quellora {

/// The URLs of one backend: the base URL concatenated with fixed paths.
/// A base that ends in "/" yields a double slash. An invalid URL is a fatal error.
class BackendEndpoints
{
public:
    explicit BackendEndpoints(QString baseURL);

    const QString &baseURL() const { return m_base; }
    QUrl appLogin() const { return url("/api/auth/app-login"); }
    QUrl appVerify() const { return url("/api/auth/app-verify"); }
    QUrl proxyQuery() const { return url("/api/proxy/query"); }
    QUrl telemetry() const { return url("/api/telemetry/query"); }
    QUrl logsUpload() const { return url("/api/logs/app"); }
    QUrl googleLogin() const;
    QUrl forgotPassword() const { return url("/reset-password"); }
    QUrl signup() const { return url("/signup"); }
    QUrl account() const { return url("/account"); }
    QUrl billing() const { return url("/account/billing"); }
    QUrl pricing() const { return url("/pricing"); }
    QUrl help() const { return url("/help"); }

private:
    QUrl url(const char *suffix) const;

    QString m_base;
};

/// Process-wide configuration, computed once from the environment.
class AppConfig
{
public:
    /// "1.0.0", sent as X-App-Version and in telemetry.
    static constexpr auto appVersion = "1.0.0";
    /// Fixed TCP port of the browser sign-in's local listener.
    static constexpr quint16 oauthCallbackPort = 9877;

    /// The backend base URL: QUELLORA_BACKEND_URL unchanged if it is set and not empty, otherwise
    /// the production origin fixed at build time. The first call logs which of the two is used.
    static const QString &backendBaseURL();
    /// The endpoints on backendBaseURL().
    static const BackendEndpoints &endpoints();

    /// Uncached backendBaseURL() for a given value of the environment variable.
    static QString resolveBackendBaseURL(const QString &override);

    /// Formats a token count as credits: one credit is 100 tokens, truncated toward zero. From
    /// 100000 tokens on the result is in thousands with the suffix "K".
    static QString formatCredits(qint64 tokens);
};

} // namespace quellora
