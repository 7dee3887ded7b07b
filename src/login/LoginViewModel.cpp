#include "login/LoginViewModel.h"

#include <QFutureWatcher>

namespace quellora {

LoginViewModel::LoginViewModel(AuthService &auth, bool offersGoogle, QObject *parent)
    : QObject(parent), m_auth(auth), m_offersGoogle(offersGoogle)
{}

void LoginViewModel::setErrorMessage(const QString &message)
{
    if (m_errorMessage == message)
        return;
    m_errorMessage = message;
    Q_EMIT errorMessageChanged();
}

void LoginViewModel::setGoogleLoading(bool loading)
{
    if (m_isGoogleLoading == loading)
        return;
    m_isGoogleLoading = loading;
    Q_EMIT isGoogleLoadingChanged();
}

void LoginViewModel::setPictureQuestion(PictureQuestion question)
{
    if (m_pictureQuestion == question)
        return;
    m_pictureQuestion = question;
    Q_EMIT pictureQuestionChanged();
}

void LoginViewModel::setLoading(bool loading)
{
    if (m_isLoading == loading)
        return;
    m_isLoading = loading;
    Q_EMIT isLoadingChanged();
}

bool LoginViewModel::isComplete(const QString &email, const QString &password) const
{
    return !email.trimmed().isEmpty() && !password.isEmpty();
}

void LoginViewModel::submit(const QString &email, const QString &password)
{
    if (m_isLoading)
        return;
    setErrorMessage({});
    setLoading(true);
    // A watcher is also notified if the request is cancelled without a result.
    auto *watcher = new QFutureWatcher<LoginResult>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        finishSubmit(watcher->future());
    });
    m_login = m_auth.login(email, password);
    watcher->setFuture(m_login);
}

void LoginViewModel::dropSubmit()
{
    m_isDropped = true;
    m_login.cancel();
}

void LoginViewModel::finishSubmit(const QFuture<LoginResult> &future)
{
    if (m_isDropped)
        return;
    setLoading(false);
    if (future.isCanceled() || future.resultCount() == 0) {
        setErrorMessage(QStringLiteral("Something went wrong. Please try again."));
        Q_EMIT submitFailed();
        return;
    }
    const LoginResult result = future.result();
    if (result) {
        Q_EMIT signedIn();
        return;
    }
    setErrorMessage(result.error().description());
    Q_EMIT submitFailed();
}

void LoginViewModel::requestGoogleSignIn()
{
    if (!m_offersGoogle || m_isLoading || m_isGoogleLoading)
        return;
    Q_EMIT googleSignInRequested();
}

void LoginViewModel::cancelGoogleSignIn()
{
    if (m_isGoogleLoading)
        Q_EMIT googleSignInCancelled();
}

} // namespace quellora
