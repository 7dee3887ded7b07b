#include "app/AppConfig.h"
#include "app/Application.h"
#include "app/Log.h"
#include "overlay/page/WebEngineSetup.h"
#include "platform/Platform.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    using namespace quellora;

    // Log lines reach a console or a file at once.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Log::event(QStringLiteral("[main] Process started, launching NSApplication"));
    AppConfig::backendBaseURL();

    Platform::prepareProcess();
    prepareWebEngine();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quellora"));
    QApplication::setApplicationVersion(QLatin1String(AppConfig::appVersion));
    QApplication::setDesktopFileName(QStringLiteral("quellora"));
    // The panel may be hidden and the login window closed while the program goes on.
    QApplication::setQuitOnLastWindowClosed(false);

    return Application().run();
}
