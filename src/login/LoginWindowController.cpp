#include "login/LoginWindowController.h"

#include "base/Log.h"
#include "base/WhenFinished.h"
#include "platform/Platform.h"
#include "ui/Ui.h"

#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QScreen>

#include <utility>

void qml_register_types_Quellora_Login();

namespace quellora {

namespace {

const QString googleFailed = QStringLiteral("Google sign-in failed. Please try again.");

void log(const QString &message)
{
    Log::event(QStringLiteral("[LoginWindowController] ") + message);
}

void logOpenFailure(const OpenFailure &failure)
{
    log(QStringLiteral("WARNING: The browser could not be opened: ") + failure.reason);
}

} // namespace

LoginWindowController::LoginWindowController(Collaborators collaborators, QObject *parent)
    : QObject(parent)
    , m_collaborators(std::move(collaborators))
    , m_viewModel(m_collaborators.auth, m_collaborators.oauthListener != nullptr)
{
    connect(&m_viewModel, &LoginViewModel::signedIn, this,
            &LoginWindowController::handleLoginSuccess);
    connect(&m_viewModel, &LoginViewModel::googleSignInRequested, this,
            &LoginWindowController::startGoogleSignIn);
    connect(&m_viewModel, &LoginViewModel::googleSignInCancelled, this,
            &LoginWindowController::cancelGoogleSignIn);
    connect(&m_viewModel, &LoginViewModel::pictureQuestionConfirmed, this,
            &LoginWindowController::askForPictures);
    connect(&m_viewModel, &LoginViewModel::pictureQuestionPostponed, this,
            &LoginWindowController::leave);
    connect(&m_viewModel, &LoginViewModel::forgotPasswordRequested, this,
            [this] { open(m_collaborators.endpoints.forgotPassword()); });
    connect(&m_viewModel, &LoginViewModel::signupRequested, this,
            [this] { open(m_collaborators.endpoints.signup()); });
    createWindow();
    log(QStringLiteral("Login window created"));
}

LoginWindowController::~LoginWindowController()
{
    m_pictureAnswer.cancel();
    m_verification.cancel();
    if (m_collaborators.oauthListener)
        m_collaborators.oauthListener->cancel();
}

void LoginWindowController::createWindow()
{
    keepQmlModule<&qml_register_types_Quellora_Login>();

    m_window = std::make_unique<QQuickView>(&m_collaborators.engine, nullptr);
    m_window->setTitle(QStringLiteral("Quellora"));
    m_window->setFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                       Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                       Qt::WindowCloseButtonHint);
    m_window->setColor(QColor::fromRgbF(0.07451f, 0.07451f, 0.07451f));
    m_window->setResizeMode(QQuickView::SizeRootObjectToView);
    // After sign-in the hidden window exists until its controller is deleted, so it must not keep
    // graphics resources.
    m_window->setPersistentGraphics(false);
    m_window->setPersistentSceneGraph(false);
    m_window->setInitialProperties(
        {{QStringLiteral("viewModel"), QVariant::fromValue(&m_viewModel)}});
    m_window->setSource(QUrl(QStringLiteral("qrc:/qt/qml/Quellora/Login/LoginView.qml")));
    if (m_window->status() != QQuickView::Ready)
        qFatal("The sign-in form could not be loaded");
    fitWindow();
    // Larger text needs a larger form.
    const QQuickItem *form = m_window->rootObject();
    connect(form, &QQuickItem::implicitWidthChanged, this, &LoginWindowController::fitWindow);
    connect(form, &QQuickItem::implicitHeightChanged, this, &LoginWindowController::fitWindow);
    const Capability ordinary = m_collaborators.shell.makeOrdinary(*m_window);
    if (ordinary.state() == Capability::State::Unsupported)
        log(QStringLiteral("WARNING: ") + ordinary.reason());
    m_window->installEventFilter(this);
    // Quitting also closes the windows, which must not be handled as closing by the user.
    qApp->installEventFilter(this);
}

void LoginWindowController::fitWindow()
{
    const QQuickItem *form = m_window->rootObject();
    QSize size = QSizeF(form->implicitWidth(), form->implicitHeight()).toSize();
    if (const QScreen *screen = m_window->screen()) {
        // Room for the title bar and borders of usual themes.
        constexpr QSize frame(16, 48);
        size = size.boundedTo((screen->availableGeometry().size() - frame).expandedTo(contentSize));
    }
    if (size == m_window->minimumSize() && size == m_window->maximumSize())
        return;
    // The limits must not contradict each other in between.
    m_window->setMinimumSize({});
    m_window->setMaximumSize(size);
    m_window->setMinimumSize(size);
    m_window->resize(size);
}

void LoginWindowController::showWindow()
{
    if (const QScreen *screen = m_window->screen()) {
        QRect area(QPoint(0, 0), m_window->size());
        area.moveCenter(screen->availableGeometry().center());
        m_window->setPosition(area.topLeft());
    }
    m_window->show();
    const Capability activated = m_collaborators.shell.activate(*m_window);
    log(QStringLiteral("Activated app and made login window key"));
    if (activated.state() == Capability::State::Unsupported)
        log(QStringLiteral("WARNING: ") + activated.reason());
}

void LoginWindowController::bringToFront()
{
    m_window->setWindowStates(m_window->windowStates() & ~Qt::WindowMinimized);
    m_collaborators.shell.activate(*m_window);
}

void LoginWindowController::open(const QUrl &url)
{
    whenFinished(m_collaborators.workspace.openUrl(url), this, [this](const OpenResult &opened) {
        if (opened)
            return;
        logOpenFailure(opened.error());
        m_viewModel.setErrorMessage(opened.error().text());
    });
}

void LoginWindowController::startGoogleSignIn()
{
    if (!m_collaborators.oauthListener)
        return;
    m_viewModel.setErrorMessage({});
    m_viewModel.setGoogleLoading(true);
    // The callbacks may be called on any thread; handle them on the main thread unless the attempt
    // is stale by then.
    const quint64 attempt = ++m_attempt;
    const auto onMainThread = [self = QPointer(this), attempt](auto action) {
        QMetaObject::invokeMethod(
            qApp,
            [self, attempt, action = std::move(action)] {
                if (self && self->m_attempt == attempt && !self->m_didAuthenticate)
                    action(*self);
            },
            Qt::QueuedConnection);
    };
    m_collaborators.oauthListener->start(
        [onMainThread] {
            onMainThread([](LoginWindowController &controller) { controller.openSignInPage(); });
        },
        [onMainThread](std::optional<QString> token) {
            onMainThread([token = std::move(token)](LoginWindowController &controller) {
                controller.handleOAuthCallback(token);
            });
        });
}

void LoginWindowController::openSignInPage()
{
    log(QStringLiteral("OAuth callback listener ready, opening browser for Google sign-in"));
    whenFinished(m_collaborators.workspace.openUrl(m_collaborators.endpoints.googleLogin()), this,
                 [this, attempt = m_attempt](const OpenResult &opened) {
                     // After the callback, a failure to open the browser no longer matters.
                     if (opened || attempt != m_attempt || m_didAuthenticate)
                         return;
                     // Without a browser there will be no callback, so do not keep waiting.
                     logOpenFailure(opened.error());
                     failGoogleSignIn(opened.error().text());
                 });
}

void LoginWindowController::handleOAuthCallback(const std::optional<QString> &token)
{
    ++m_attempt;
    if (!token) {
        log(QStringLiteral("OAuth callback received without a usable token"));
        failGoogleSignIn(googleFailed);
        return;
    }
    // The browser is the active window, so raise this one.
    bringToFront();
    // A watcher is also notified if the request is cancelled without a result.
    auto *watcher = new QFutureWatcher<LoginResult>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, attempt = m_attempt] {
        watcher->deleteLater();
        if (attempt == m_attempt)
            finishVerification(watcher->future());
    });
    m_verification = m_collaborators.auth.verify(*token);
    watcher->setFuture(m_verification);
}

void LoginWindowController::finishVerification(const QFuture<LoginResult> &future)
{
    if (m_didAuthenticate)
        return;
    if (future.isCanceled() || future.resultCount() == 0) {
        log(QStringLiteral("OAuth token verification failed: no answer"));
        failGoogleSignIn(googleFailed);
        return;
    }
    const LoginResult result = future.result();
    if (!result) {
        const QString description = result.error().description();
        log(QStringLiteral("OAuth token verification failed: ") + description);
        failGoogleSignIn(description);
        return;
    }
    m_viewModel.setGoogleLoading(false);
    handleLoginSuccess();
}

void LoginWindowController::cancelGoogleSignIn()
{
    log(QStringLiteral("Google sign-in cancelled"));
    endGoogleSignIn();
}

void LoginWindowController::endGoogleSignIn()
{
    ++m_attempt;
    if (m_collaborators.oauthListener)
        m_collaborators.oauthListener->cancel();
    m_verification.cancel();
    m_viewModel.setGoogleLoading(false);
}

void LoginWindowController::failGoogleSignIn(const QString &message)
{
    endGoogleSignIn();
    m_viewModel.setErrorMessage(message);
    bringToFront();
}

void LoginWindowController::handleLoginSuccess()
{
    // E-mail and browser sign-in may run concurrently; the first success wins.
    if (m_didAuthenticate)
        return;
    log(QStringLiteral("Login successful, closing login window"));
    m_didAuthenticate = true;
    // Cancel the other sign-in so that its result does not replace this session.
    if (m_collaborators.oauthListener)
        m_collaborators.oauthListener->cancel();
    m_verification.cancel();
    m_viewModel.dropSubmit();
    QMetaObject::invokeMethod(m_window->rootObject(), "clearFields");
    if (m_collaborators.pictures &&
        m_collaborators.pictures->access() == ScreenSource::Access::NotAsked) {
        log(QStringLiteral("Announcing the desktop's question for pictures"));
        m_viewModel.setPictureQuestion(LoginViewModel::PictureQuestion::Announced);
        bringToFront();
        return;
    }
    leave();
}

void LoginWindowController::askForPictures()
{
    if (m_viewModel.pictureQuestion() != LoginViewModel::PictureQuestion::Announced)
        return;
    m_viewModel.setPictureQuestion(LoginViewModel::PictureQuestion::Asked);
    m_pictureAnswer = m_collaborators.pictures->ask();
    whenFinished(m_pictureAnswer, this, [this](ScreenSource::Access access) {
        log(access == ScreenSource::Access::Granted
                ? QStringLiteral("The desktop permits pictures")
                : QStringLiteral("The desktop does not permit pictures"));
        leave();
    });
}

void LoginWindowController::leave()
{
    if (std::exchange(m_hasLeft, true))
        return;
    qApp->removeEventFilter(this);
    m_pictureAnswer.cancel();
    m_window->close();
    if (onLoginSuccess)
        onLoginSuccess();
}

bool LoginWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::Quit)
        m_quitting = true;
    else if (watched == m_window.get() && event->type() == QEvent::Close)
        windowWillClose();
    return QObject::eventFilter(watched, event);
}

void LoginWindowController::windowWillClose()
{
    if (m_quitting)
        return;
    if (m_didAuthenticate) {
        // The desktop then asks at the first picture.
        if (!m_hasLeft)
            QMetaObject::invokeMethod(this, &LoginWindowController::leave, Qt::QueuedConnection);
        return;
    }
    m_quitting = true;
    log(QStringLiteral("Login window closed before sign-in — quitting"));
    m_collaborators.quit();
}

} // namespace quellora
