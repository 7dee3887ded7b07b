#pragma once

#include <QString>
#include <QUrl>

namespace quellora {

/// The addresses of one backend: plain concatenation of the base URL and fixed paths.
/// A base that ends in "/" yields a double slash. An address that does not parse stops the process.
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

/// Values computed once from the environment and kept for the life of the process.
class AppConfig
{
public:
    /// "1.0.0", sent as X-App-Version and in telemetry.
    static constexpr auto appVersion = "1.0.0";
    /// Fixed TCP port of the browser sign-in's local listener.
    static constexpr quint16 oauthCallbackPort = 9877;

    /// The backend base URL: QUELLORA_BACKEND_URL when set and not empty, unchanged; else the
    /// production origin fixed at build time. The first call logs which of the two is used.
    static const QString &backendBaseURL();
    /// The endpoints on backendBaseURL().
    static const BackendEndpoints &endpoints();

    /// backendBaseURL() without its cache, for a given value of the environment variable.
    static QString resolveBackendBaseURL(const QString &override);

    /// Credits shown for a token count: one credit is 100 tokens, truncated toward zero; from
    /// 100000 tokens on in thousands with the suffix "K".
    static QString formatCredits(qint64 tokens);
};

} // namespace quellora
