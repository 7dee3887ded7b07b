#include "app/Application.h"
#include "app/SingleInstance.h"
#include "base/AppConfig.h"
#include "base/Log.h"
#include "page/WebEngineSetup.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QQuickWindow>

#include <chrono>
#include <cstdio>
#include <memory>
#include <utility>

namespace {

/// Asks the running instance to raise its window; returns the exit code of this process.
int activateRunningInstance(quellora::SingleInstance &instance)
{
    using namespace std::chrono_literals;
    const bool hasReplied = instance.activateRunningInstance(2s);
    quellora::Log::event(
        hasReplied ? QStringLiteral("[main] Already running; that window was brought to the front")
                   : QStringLiteral("[main] ERROR: Already running, but it does not answer"));
    return hasReplied ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    using namespace quellora;

    Platform::prepareOutput();
    // Unbuffered, so that log lines reach the console or file immediately.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Log::event(QStringLiteral("[main] Process started, launching NSApplication"));
    AppConfig::backendBaseURL();

    auto instance = std::make_unique<SingleInstance>(SingleInstance::runtimeFolder(),
                                                     Platform::displaySession());
    if (instance->claim() == SingleInstance::Claim::Taken)
        return activateRunningInstance(*instance);

    if (Platform::prefersSoftwareRendering())
        QQuickWindow::setSceneGraphBackend(QStringLiteral("software"));
    Platform::prepareProcess();
    prepareWebEngine();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quellora"));
    QApplication::setApplicationVersion(QLatin1String(AppConfig::appVersion));
    QApplication::setDesktopFileName(QStringLiteral("quellora"));
    // The program keeps running while the panel is hidden and the login window is closed.
    QApplication::setQuitOnLastWindowClosed(false);

    return Application(std::move(instance)).run();
}
