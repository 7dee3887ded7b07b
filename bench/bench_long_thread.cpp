#include "fakes/FakePlatform.h"
#include "page/EngineWindow.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <cstdio>

using namespace quellora;

namespace {

/// A thread with @p turns turns and @p screenshots screenshots of 150 KB each.
CaptureSession thread(int turns, int screenshots)
{
    // An image that compresses badly, like a screenshot.
    QImage image(640, 400, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x * y % 251, x * 7 % 253, (x ^ y) % 241));
    }
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    image.save(&buffer, "JPEG", 85);
    const QString answer = QStringLiteral(
        "## Answer %1\n\nwith *some* text and `code` of the length that answers often have, in two "
        "lines or three.\n\n```cpp\nfor (int i = 0; i < %1; ++i)\n    queue.push(i);\n```\n\n- a "
        "first point\n- a second point\n\n| call | cost |\n|---|---|\n| push | 1 |\n");
    CaptureSession session = CaptureSession::create();
    QDateTime time(QDate(2024, 3, 1), QTime(8, 0), Qt::UTC);
    for (int i = 0; i < turns; ++i) {
        time = time.addSecs(10);
        if (screenshots > 0 && i % (turns / screenshots) == 0)
            session.addScreenshot(jpeg.leftJustified(150'000 + i, '\0'), time);
        time = time.addSecs(10);
        session.addTurn(QStringLiteral("prompt %1").arg(i), answer.arg(i), time);
    }
    return session;
}

double milliseconds(const QElapsedTimer &clock)
{
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

/// Proportional set size (PSS) of this process and its descendants in MiB.
double proportionalSize()
{
    double kilobytes = 0;
    QList<qint64> pids{QCoreApplication::applicationPid()};
    for (qsizetype i = 0; i < pids.size(); ++i) {
        const QString folder = QStringLiteral("/proc/%1/").arg(pids[i]);
        QFile rollup(folder + QStringLiteral("smaps_rollup"));
        if (rollup.open(QIODevice::ReadOnly)) {
            const QByteArray text = rollup.readAll();
            kilobytes +=
                text.mid(text.indexOf("\nPss:") + 5).trimmed().split(' ').value(0).toDouble();
        }
        const QStringList threads =
            QDir(folder + QStringLiteral("task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &thread : threads) {
            QFile children(folder + QStringLiteral("task/") + thread + QStringLiteral("/children"));
            if (!children.open(QIODevice::ReadOnly))
                continue;
            for (const QByteArray &pid : children.readAll().simplified().split(' ')) {
                if (!pid.isEmpty())
                    pids.append(pid.toLongLong());
            }
        }
    }
    return kilobytes / 1024;
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
    // Measures the longest time for which the main thread is blocked.
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

    std::printf("a thread from request to page, in ms, median of five; memory with the page in "
                "MiB\n");
    std::printf("%6s %12s %10s %16s %16s %8s\n", "turns", "screenshots", "page",
                "with new question", "main thread away", "memory");
    struct Row
    {
        int turns = 0;
        int screenshots = 0;
        QList<double> pages = {};
        QList<double> shells = {};
        double longestBlock = 0;
        double memory = 0;
    };
    std::array rows{Row{10, 2}, Row{300, 0}, Row{300, 50}};
    // Alternate between the rows, so that load on the machine affects all of them alike.
    for (int run = 0; run < 5; ++run) {
        for (Row &row : rows) {
            const CaptureSession session = thread(row.turns, row.screenshots);
            row.pages.append(time([&] { return display.renderThread(session); }));
            row.longestBlock = std::max(row.longestBlock, worstGap);
            // Images are decoded with the next frames.
            engine.painted();
            row.memory = proportionalSize();
            row.shells.append(time([&] {
                renderer.handleStreamStart(session, QStringLiteral("q"),
                                           QDateTime::currentDateTime(), std::nullopt);
                return display.latestPage();
            }));
            row.longestBlock = std::max(row.longestBlock, worstGap);
        }
    }
    const auto median = [](QList<double> values) {
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    for (const Row &row : rows) {
        std::printf("%6d %12d %10.1f %16.1f %16.1f %8.0f\n", row.turns, row.screenshots,
                    median(row.pages), median(row.shells), row.longestBlock, row.memory);
    }
    std::printf("with / without pictures: %.2f\n", median(rows[2].pages) / median(rows[1].pages));
    return 0;
}
