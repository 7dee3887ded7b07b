#pragma once

#include "backend/AuthService.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// State and actions of the sign-in form. The texts of the two fields stay in the view. Main thread
/// only.
class LoginViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Made by the window controller")
    /// Error message of the form; empty if there is none.
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    /// An e-mail sign-in is in progress.
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    /// A browser sign-in is in progress.
    Q_PROPERTY(bool isGoogleLoading READ isGoogleLoading NOTIFY isGoogleLoadingChanged)
    /// Whether browser sign-in is available.
    Q_PROPERTY(bool offersGoogle READ offersGoogle CONSTANT)
    /// Whether the form is replaced by the reason for the desktop's question about pictures.
    Q_PROPERTY(PictureQuestion pictureQuestion READ pictureQuestion NOTIFY pictureQuestionChanged)
public:
    /// The question whether this program may take pictures of the screen.
    enum class PictureQuestion {
        None,
        /// The user reads why the desktop is going to ask.
        Announced,
        /// The desktop asks.
        Asked,
    };
    Q_ENUM(PictureQuestion)

    /// @p auth outlives the model.
    LoginViewModel(AuthService &auth, bool offersGoogle, QObject *parent = nullptr);

    QString errorMessage() const { return m_errorMessage; }
    bool isLoading() const { return m_isLoading; }
    bool isGoogleLoading() const { return m_isGoogleLoading; }
    bool offersGoogle() const { return m_offersGoogle; }
    PictureQuestion pictureQuestion() const { return m_pictureQuestion; }

    /// An empty message hides the error.
    void setErrorMessage(const QString &message);
    void setGoogleLoading(bool loading);
    void setPictureQuestion(PictureQuestion question);
    /// Cancels a running e-mail sign-in without any signals, because the user has signed in
    /// through the browser.
    void dropSubmit();

    /// Whether the e-mail is not blank and the password is not empty.
    Q_INVOKABLE bool isComplete(const QString &email, const QString &password) const;
    /// Signs in with both texts exactly as typed. Does nothing while an e-mail sign-in is running.
    /// Does not check isComplete(), which only enables the button.
    Q_INVOKABLE void submit(const QString &email, const QString &password);
    /// Requests a browser sign-in; ignored while either sign-in is running.
    Q_INVOKABLE void requestGoogleSignIn();
    /// Requests cancelling the browser sign-in.
    Q_INVOKABLE void cancelGoogleSignIn();

Q_SIGNALS:
    void errorMessageChanged();
    void isLoadingChanged();
    void isGoogleLoadingChanged();
    /// The e-mail sign-in succeeded.
    void signedIn();
    /// The e-mail sign-in failed; errorMessage holds the reason.
    void submitFailed();
    void pictureQuestionChanged();
    /// The user wants the desktop to ask now, or later.
    void pictureQuestionConfirmed();
    void pictureQuestionPostponed();
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
    PictureQuestion m_pictureQuestion = PictureQuestion::None;
    bool m_isDropped = false;
    QFuture<LoginResult> m_login;
};

} // namespace quellora
