#include "fakes/FakePlatform.h"
#include "page/EngineWindow.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"

#include <QGuiApplication>
#include <QTemporaryDir>

#include <cstdio>

using namespace quellora;

namespace {

/// A thread with this many turns, some with a screenshot of 150 KB.
CaptureSession thread(int turns, int screenshots)
{
    const QString answer = QStringLiteral(
        "## Answer %1\n\nwith *some* text and `code` of the length that answers often have, in two "
        "lines or three.\n\n```cpp\nfor (int i = 0; i < %1; ++i)\n    queue.push(i);\n```\n\n- a "
        "first point\n- a second point\n\n| call | cost |\n|---|---|\n| push | 1 |\n");
    CaptureSession session = CaptureSession::create();
    QDateTime time(QDate(2024, 3, 1), QTime(8, 0), Qt::UTC);
    for (int i = 0; i < turns; ++i) {
        time = time.addSecs(10);
        if (screenshots > 0 && i % (turns / screenshots) == 0)
            session.addScreenshot(QByteArray(150'000, static_cast<char>('a' + i % 26)), time);
        time = time.addSecs(10);
        session.addTurn(QStringLiteral("prompt %1").arg(i), answer.arg(i), time);
    }
    return session;
}

double milliseconds(const QElapsedTimer &clock)
{
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    EngineWindow engine;
    QTemporaryDir folder;
    FakeWorkspace workspace;
    ResponseDisplay display(engine.view, workspace, folder.path());
    StreamingRenderer renderer(display);
    ResponseDisplay::PageId finished = 0;
    QObject::connect(&display, &ResponseDisplay::pageFinished, &display,
                     [&finished](ResponseDisplay::PageId page) { finished = page; });
    double worstGap = 0;
    QElapsedTimer gap;
    // The main thread is to come by every few milliseconds.
    QTimer heartbeat;
    heartbeat.setTimerType(Qt::PreciseTimer);
    QObject::connect(&heartbeat, &QTimer::timeout, &heartbeat, [&] {
        worstGap = std::max(worstGap, milliseconds(gap));
        gap.start();
    });
    const auto time = [&](const std::function<ResponseDisplay::PageId()> &load) {
        worstGap = 0;
        gap.start();
        heartbeat.start(1);
        QElapsedTimer clock;
        clock.start();
        const ResponseDisplay::PageId page = load();
        runUntil([&] { return finished == page; });
        heartbeat.stop();
        return milliseconds(clock);
    };
    time([&] { return display.loadContent(QStringLiteral("warm")); });

    std::printf("a thread from request to page, in ms\n");
    std::printf("%6s %12s %10s %16s %16s\n", "turns", "screenshots", "page", "with new question",
                "main thread away");
    for (const auto &[turns, screenshots] : {std::pair{10, 2}, {300, 0}, {300, 50}}) {
        const CaptureSession session = thread(turns, screenshots);
        const double page = time([&] { return display.renderThread(session); });
        double away = worstGap;
        const double shell = time([&] {
            renderer.handleStreamStart(session, QStringLiteral("q"), QDateTime::currentDateTime(),
                                       std::nullopt);
            return display.latestPage();
        });
        away = std::max(away, worstGap);
        std::printf("%6d %12d %10.1f %16.1f %16.1f\n", turns, screenshots, page, shell, away);
        std::fflush(stdout);
    }
    return 0;
}
