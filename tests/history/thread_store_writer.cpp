// Takes the steps of a busy session until it is killed. Prints the number of steps that are stored.

#include "history/BusySession.h"

#include <QCoreApplication>

#include <cstdio>

using namespace quellora;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    if (QCoreApplication::arguments().size() != 3)
        return 2;
    const CaptureSessionStore store(QCoreApplication::arguments().at(1));
    int steps = QCoreApplication::arguments().at(2).toInt();
    BusySession session = BusySession::after(steps);
    if (std::setvbuf(stdout, nullptr, _IONBF, 0) != 0)
        return 2;
    std::printf("%d\n", steps);
    for (;;) {
        if (!session.take(steps, &store))
            return 1;
        std::printf("%d\n", ++steps);
    }
}
