#include "platform/Platform.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTest>

#include <cstdlib>
#include <thread>

#include <sys/socket.h>

// Last, because its macros collide with common identifiers.
#include <X11/Xlib.h>

using namespace quellora;

namespace {

constexpr auto loseOption = "--lose-display";
constexpr int handlerExitCode = 42;

/// The process under test: a rendering thread finds its display connection closed.
int loseDisplay()
{
    Platform::setDisplayLossHandler([] { std::_Exit(handlerExitCode); });
    std::thread([] {
        Display *display = XOpenDisplay(nullptr);
        ::shutdown(ConnectionNumber(display), SHUT_RDWR);
        XSync(display, 0);
    }).detach();
    return QGuiApplication::exec();
}

} // namespace

/// The process under test exits, so it is a second instance of this program.
class TestDisplayLossX11 : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void handlerRunsOnRenderingThread()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("display_loss_x11"), QLatin1String(loseOption)});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), handlerExitCode);
    }
};

namespace {

int runTests(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    if (QGuiApplication::arguments().contains(QLatin1String(loseOption)))
        return loseDisplay();
    TestDisplayLossX11 test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_display_loss_x11.moc"
