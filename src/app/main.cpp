#include "app/Application.h"
#include "app/SingleInstance.h"
#include "base/AppConfig.h"
#include "base/Log.h"
#include "page/WebEngineSetup.h"
#include "platform/Platform.h"

#include <QApplication>

#include <chrono>
#include <cstdio>
#include <memory>
#include <utility>

namespace {

/// Asks the program that already runs to come forward; returns this start's exit code.
int yieldTo(quellora::SingleInstance &first)
{
    using namespace std::chrono_literals;
    const bool answered = first.activateFirst(2s);
    quellora::Log::event(
        answered ? QStringLiteral("[main] Already running; that window was brought to the front")
                 : QStringLiteral("[main] ERROR: Already running, but it does not answer"));
    return answered ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    using namespace quellora;

    Platform::prepareOutput();
    // Log lines reach a console or a file at once.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Log::event(QStringLiteral("[main] Process started, launching NSApplication"));
    AppConfig::backendBaseURL();

    auto instance = std::make_unique<SingleInstance>(SingleInstance::runtimeFolder(),
                                                     Platform::displaySession());
    if (instance->claim() == SingleInstance::Claim::Taken)
        return yieldTo(*instance);

    Platform::prepareProcess();
    prepareWebEngine();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quellora"));
    QApplication::setApplicationVersion(QLatin1String(AppConfig::appVersion));
    QApplication::setDesktopFileName(QStringLiteral("quellora"));
    // The panel may be hidden and the login window closed while the program goes on.
    QApplication::setQuitOnLastWindowClosed(false);

    return Application(std::move(instance)).run();
}
