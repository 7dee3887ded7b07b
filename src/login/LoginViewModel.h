#pragma once

#include "backend/AuthService.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// State of the sign-in form and what the user can do with it. The texts of the two fields stay in
/// the view. Main thread only.
class LoginViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Made by the window controller")
    /// The error line under the form; empty when there is none.
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    /// An e-mail sign-in is in progress.
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    /// A browser sign-in is in progress.
    Q_PROPERTY(bool isGoogleLoading READ isGoogleLoading NOTIFY isGoogleLoadingChanged)
    /// Whether signing in through the browser can be offered.
    Q_PROPERTY(bool offersGoogle READ offersGoogle CONSTANT)
public:
    /// @p auth outlives the model.
    LoginViewModel(AuthService &auth, bool offersGoogle, QObject *parent = nullptr);

    QString errorMessage() const { return m_errorMessage; }
    bool isLoading() const { return m_isLoading; }
    bool isGoogleLoading() const { return m_isGoogleLoading; }
    bool offersGoogle() const { return m_offersGoogle; }

    /// An empty message removes the line.
    void setErrorMessage(const QString &message);
    void setGoogleLoading(bool loading);
    /// Ends an e-mail sign-in that is running; nothing is heard of it. The user has signed in
    /// another way.
    void dropSubmit();

    /// Whether there is something to submit: an e-mail beyond blanks and a password.
    Q_INVOKABLE bool isComplete(const QString &email, const QString &password) const;
    /// Signs in with both texts exactly as typed. Does nothing while a sign-in is running. Does not
    /// ask whether the form is complete: that decides about the button only.
    Q_INVOKABLE void submit(const QString &email, const QString &password);
    /// The Google button was pressed; ignored while either sign-in is running.
    Q_INVOKABLE void requestGoogleSignIn();
    /// The user does not want to sign in through the browser any more.
    Q_INVOKABLE void cancelGoogleSignIn();

Q_SIGNALS:
    void errorMessageChanged();
    void isLoadingChanged();
    void isGoogleLoadingChanged();
    /// The e-mail sign-in succeeded.
    void signedIn();
    /// The e-mail sign-in failed; the error line says why.
    void submitFailed();
    void googleSignInRequested();
    void googleSignInCancelled();
    void forgotPasswordRequested();
    void signupRequested();

private:
    void setLoading(bool loading);
    void finishSubmit(const QFuture<LoginResult> &future);

    AuthService &m_auth;
    QString m_errorMessage;
    bool m_isLoading = false;
    bool m_isGoogleLoading = false;
    bool m_offersGoogle = false;
    bool m_isDropped = false;
    QFuture<LoginResult> m_login;
};

} // namespace quellora
