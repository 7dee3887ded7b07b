// Takes the steps of a busy session until it is killed. Prints the number of steps that are stored.

#include "history/BusySession.h"

#include <QCoreApplication>

#include <cstdio>

using namespace quellora;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    if (app.arguments().size() != 3)
        return 2;
    const CaptureSessionStore store(app.arguments().at(1));
    int steps = app.arguments().at(2).toInt();
    BusySession session = BusySession::after(steps);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::printf("%d\n", steps);
    for (;;) {
        if (!session.take(steps, &store))
            return 1;
        std::printf("%d\n", ++steps);
    }
}
