// Saves a growing thread in a loop until it is killed. Prints the number of stored turns after each
// save.

#include "history/GrowingThread.h"

#include <QCoreApplication>

#include <cstdio>

using namespace quellora;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    if (app.arguments().size() != 3)
        return 2;
    const CaptureSessionStore store(app.arguments().at(1));
    const QUuid id(app.arguments().at(2));
    CaptureSession session = growingThread(id);
    if (const auto stored = store.load(id)) {
        while (session.turns.size() < stored->turns.size())
            grow(session);
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::printf("%d\n", static_cast<int>(session.turns.size()));
    for (;;) {
        grow(session);
        if (!store.save(session))
            return 1;
        std::printf("%d\n", static_cast<int>(session.turns.size()));
    }
}
