// Shows the sign-in window with a fake backend and browser, and saves a screenshot if requested:
//   login_preview STATE [OUT.png]
// STATE: idle, ready, loading, error, error2, waiting, nogoogle
#include "FakeSignIn.h"
#include "fakes/FakePlatform.h"
#include "login/LoginWindowController.h"
#include "ui/Ui.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTimer>

using namespace quellora;

namespace {

class RaisingShell : public FakeShell
{
public:
    Capability activate(QWindow &window) override
    {
        window.raise();
        window.requestActivate();
        return Capability::applied();
    }
};

QObject *field(LoginWindowController &controller, const QString &name)
{
    for (QObject *item : controller.window().rootObject()->childItems()) {
        if (item->property("name").toString() == name)
            return item;
    }
    return nullptr;
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QString state = QGuiApplication::arguments().value(1, QStringLiteral("idle"));
    initializeUi();
    QQmlEngine engine;
    prepareQmlEngine(engine);
    FakeAuthService auth;
    FakeWorkspace workspace;
    RaisingShell shell;
    BrowserSignInRecord browser;
    LoginWindowController controller({engine, auth, workspace, shell,
                                      BackendEndpoints(QStringLiteral("https://backend.example")),
                                      state == QLatin1String("nogoogle")
                                          ? nullptr
                                          : std::make_unique<FakeBrowserSignIn>(browser),
                                      [] { QCoreApplication::quit(); }});
    controller.showWindow();
    LoginViewModel &model = controller.viewModel();
    if (state != QLatin1String("idle") && state != QLatin1String("nogoogle"))
        field(controller, QStringLiteral("Email"))
            ->setProperty("text", QStringLiteral("you@example.com"));
    if (state != QLatin1String("idle") && state != QLatin1String("waiting") &&
        state != QLatin1String("nogoogle"))
        field(controller, QStringLiteral("Password"))
            ->setProperty("text", QStringLiteral("correct ho"));
    if (state == QLatin1String("waiting"))
        model.requestGoogleSignIn();
    if (state == QLatin1String("loading") || state.startsWith(QLatin1String("error")))
        model.submit(QStringLiteral("you@example.com"), QStringLiteral("correct ho"));
    if (state == QLatin1String("error"))
        auth.fail(AuthError::invalidCredentials());
    if (state == QLatin1String("error2"))
        auth.fail(AuthError::networkError(-1));
    const QString out = QGuiApplication::arguments().value(2);
    if (!out.isEmpty())
        QTimer::singleShot(1200, &app, [&] {
            QGuiApplication::exit(controller.window().grabWindow().save(out) ? 0 : 1);
        });
    return QGuiApplication::exec();
}
