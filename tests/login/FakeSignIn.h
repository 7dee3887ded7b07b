#pragma once

#include "backend/AuthService.h"
#include "backend/BrowserSignIn.h"

#include <QNetworkAccessManager>
#include <QPromise>

#include <memory>
#include <utility>

namespace quellora {

/// Records its calls; the test completes each of them.
class FakeAuthService : public AuthService
{
public:
    FakeAuthService()
        : AuthService(m_network, BackendEndpoints(QStringLiteral("https://backend.example")),
                      [] { return DeviceFields(); })
    {}

    QFuture<LoginResult> login(const QString &email, const QString &password) override
    {
        logins << std::pair(email, password);
        return begin();
    }
    QFuture<LoginResult> verify(const QString &token) override
    {
        tokens << token;
        return begin();
    }

    void succeed(qsizetype call = -1) { finish(LoginResponse(), call); }
    void fail(AuthError error, qsizetype call = -1) { finish(tl::unexpected(error), call); }
    /// Destroys the last call's promise without a result.
    void drop() { m_promises.removeLast(); }

    bool isCancelled(qsizetype call) const { return m_promises.at(call)->isCanceled(); }

    QList<std::pair<QString, QString>> logins;
    QStringList tokens;

private:
    QFuture<LoginResult> begin()
    {
        m_promises << std::make_shared<QPromise<LoginResult>>();
        m_promises.last()->start();
        return m_promises.last()->future();
    }
    void finish(const LoginResult &result, qsizetype call)
    {
        auto &promise = m_promises[call < 0 ? m_promises.size() - 1 : call];
        promise->addResult(result);
        promise->finish();
    }

    QNetworkAccessManager m_network;
    QList<std::shared_ptr<QPromise<LoginResult>>> m_promises;
};

/// Calls of a FakeBrowserSignIn; outlives it.
struct BrowserSignInRecord
{
    int cancels = 0;
    QList<std::function<void()>> ready;
    QList<std::function<void(std::optional<QString>)>> token;
    int starts() const { return int(ready.size()); }
};

class FakeBrowserSignIn : public BrowserSignIn
{
public:
    explicit FakeBrowserSignIn(BrowserSignInRecord &record) : m_record(record) {}

    void start(std::function<void()> onReady,
               std::function<void(std::optional<QString>)> onToken) override
    {
        m_record.ready << std::move(onReady);
        m_record.token << std::move(onToken);
    }
    void cancel() override { ++m_record.cancels; }

private:
    BrowserSignInRecord &m_record;
};

} // namespace quellora
