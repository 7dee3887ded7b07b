#include "fakes/FakePlatform.h"
#include "page/EngineWindow.h"
#include "page/ResponsePage.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"

#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

using namespace quellora;

namespace {

/// Characters per chunk, and so per frame.
constexpr int perFrame = 32;
/// Where in the growing answer frames are measured, and how many in a row there. A frame costs
/// about the same as its neighbours, so a sample tells the whole without waiting for it.
constexpr int places = 16;

/// Markdown of the kind models write: headings, lists, paragraphs and code, @p size characters.
QString answer(qsizetype size)
{
    const QString section = QStringLiteral(
        "## Step %1\n\nThe *queue* holds `n` entries and **never** blocks; see the list below for "
        "what each call does with a full buffer.\n\n- first point about `push`\n- second point, a "
        "little longer than the first one\n  - nested detail\n- third point\n\n```cpp\nfor (int i "
        "= 0; i < count; ++i) {\n    queue.push(values[i]);\n    if (queue.full())\n        break;"
        "\n}\n```\n\n> Remember that the consumer may be slower than the producer.\n\n| call | "
        "cost "
        "|\n|---|---|\n| push | 1 |\n| pop | 2 |\n\n");
    QString text;
    for (int i = 1; text.size() < size; ++i)
        text += section.arg(i);
    return text.left(size);
}

/// @p line and @p start repeated to @p size characters: one block that never ends.
QString giant(qsizetype size, const QString &start, const QString &line)
{
    QString text = start;
    while (text.size() < size)
        text += line;
    return text.left(size);
}

struct Result
{
    /// Milliseconds, all frames.
    double total = 0;
    double median = 0;
    /// All but the first frame.
    double p99 = 0;
    double worst = 0;
};

QByteArray shellPage()
{
    QByteArray page =
        responsepage::streamingShellPage(std::nullopt, QStringLiteral("question"),
                                         QDateTime::currentDateTime(), std::nullopt, {}, {});
    // Scripts are compiled by the page here, not by the host: its policy would refuse that.
    const qsizetype policy = page.indexOf("<meta http-equiv");
    return page.remove(policy, page.indexOf('>', policy) + 1 - policy);
}

/// Runs one script per frame in the page and takes the time spent in it, layout included. The page
/// yields between frames, so that its observers run as they do with a real stream.
Result measure(EngineWindow &engine, const QString &text, const QString &step, int inARow)
{
    if (!engine.load({shellPage()}))
        qFatal("the page does not load");
    engine.value(
        QStringLiteral(
            "window.run = (async () => {\n"
            "const text = \"%1\"; const size = %2; const places = %3; const inARow = %4;\n"
            "const slot = document.getElementById('streaming-response'); const times = [];\n"
            "const channel = new MessageChannel(); let resume;\n"
            "channel.port1.onmessage = () => resume();\n"
            "const turn = () => new Promise(r => { resume = r; channel.port2.postMessage(0); });\n"
            "const literal = s => JSON.stringify(s).replace(/</g, '\\\\u003c');\n"
            "const step = (%5)(slot, literal);\n"
            "const frames = Math.ceil(text.length / size);\n"
            "const row = Math.min(inARow, Math.floor(frames / places));\n"
            "slot.textContent = ''; let done = 0;\n"
            "for (let place = 1; place <= places; ++place) {\n"
            "  const last = Math.floor(frames * place / places);\n"
            "  for (let frame = last - row - 1; frame < last; ++frame) {\n"
            "    const end = Math.min((frame + 1) * size, text.length);\n"
            "    const run = step(text, done, end); done = end;\n"
            "    const start = performance.now();\n"
            "    run();\n"
            "    void document.body.scrollHeight;\n"
            "    await Promise.resolve();\n"
            // The first one catches up with what has been left out.
            "    if (frame >= last - row) times.push(performance.now() - start);\n"
            "    await turn();\n"
            "  }\n"
            "}\n"
            "const sum = times.reduce((a, b) => a + b, 0);\n"
            "const later = times.slice(1).sort((a, b) => a - b);\n"
            "window.result = [sum / times.length * frames, later[later.length >> 1],\n"
            "  later[Math.ceil(later.length * 0.99) - 1], later[later.length - 1]];\n"
            "})(); 0")
            .arg(responsepage::escapedForJson(text))
            .arg(perFrame)
            .arg(places)
            .arg(inARow)
            .arg(step));
    QVariantList result;
    runUntil(
        [&] {
            result = engine.value(QStringLiteral("window.result")).toList();
            return result.size() == 4;
        },
        std::chrono::minutes(10));
    if (result.size() != 4)
        qFatal("the page did not finish");
    return {result[0].toDouble(), result[1].toDouble(), result[2].toDouble(), result[3].toDouble()};
}

/// What the app does: the script of one chunk, compiled and run.
const QString renderStep =
    QStringLiteral("(slot, literal) => (text, from, end) => { const script = \"answers.append(\" + "
                   "literal(text.slice(from, end)) + \");\"; return () => (0, eval)(script); }");

/// The whole answer is rendered again for every chunk.
const QString wholeStep =
    QStringLiteral("slot => { const plain = document.createElement('div'); slot.after(plain); "
                   "return (text, from, end) => () => { answers.show(plain, text.slice(0, end)); "
                   "document.body.scrollTop = document.body.scrollHeight; }; }");

/// The least that can be done: the new characters go to the end as plain text, a block per line.
const QString appendStep = QStringLiteral(
    "slot => (text, from, end) => { const lines = text.slice(from, end).split('\\n'); "
    "return () => { lines.forEach((line, i) => { if (i > 0 || !slot.lastChild) "
    "slot.append(document.createElement('div')); slot.lastChild.append(line); }); "
    "document.body.scrollTop = document.body.scrollHeight; }; }");

/// The run with the median total of three.
Result medianOf(EngineWindow &engine, const QString &text, const QString &step, int inARow)
{
    std::array<Result, 3> runs;
    for (Result &run : runs)
        run = measure(engine, text, step, inARow);
    std::sort(runs.begin(), runs.end(),
              [](const Result &a, const Result &b) { return a.total < b.total; });
    return runs[1];
}

void print(const char *name, qsizetype kilobytes, const Result &append, const Result &render)
{
    std::printf("%-12s %5lld KB %12.1f %12.1f %8.2f %8.2f %8.2f %8.2f\n", name, kilobytes,
                append.total, render.total, render.median, render.p99, render.worst,
                render.total / append.total);
    std::fflush(stdout);
}

void pageTimes(EngineWindow &engine, bool isUsualOnly)
{
    std::printf("one script per frame of %d characters, page time in ms, median of three runs; "
                "single frames without the first\n",
                perFrame);
    std::printf("%-12s %8s %12s %12s %8s %8s %8s %8s\n", "answer", "size", "append", "render",
                "median", "p99", "worst", "ratio");
    double previous = 0;
    for (const qsizetype kilobytes : {4, 32, 128, 512}) {
        const QString text = answer(kilobytes * 1024);
        const Result append = medianOf(engine, text, appendStep, 16);
        const Result render = medianOf(engine, text, renderStep, 32);
        print("usual", kilobytes, append, render);
        if (kilobytes == 512)
            std::printf("512 KB / 128 KB: %.1f\n", render.total / previous);
        previous = render.total;
        if (!isUsualOnly && kilobytes <= 32)
            print("whole", kilobytes, append, measure(engine, text, wholeStep, 1));
    }
    if (isUsualOnly)
        return;
    const qsizetype kilobytes = 128;
    const struct
    {
        const char *name;
        QString text;
    } giants[]{
        {"one fence", giant(kilobytes * 1024, QStringLiteral("```cpp\n"),
                            QStringLiteral("queue.push(values[i]); // <next>\n"))},
        {"one list", giant(kilobytes * 1024, {},
                           QStringLiteral("- a point about `push` and *pop*, of usual length\n"))},
        {"one table", giant(kilobytes * 1024, QStringLiteral("| call | cost |\n|---|---|\n"),
                            QStringLiteral("| `push` of one entry | 1 |\n"))},
        {"one quote", giant(kilobytes * 1024, {},
                            QStringLiteral("> The consumer may be slower than the producer.\n"))},
        {"one text", giant(kilobytes * 1024, {},
                           QStringLiteral("The consumer may be *slower* than the producer.\n"))},
    };
    for (const auto &[name, text] : giants)
        print(name, kilobytes, medianOf(engine, text, appendStep, 16),
              medianOf(engine, text, renderStep, 4));
}

double threadMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Processor time of the page's main thread.
double pageMilliseconds(EngineWindow &engine)
{
    const auto pid = engine.view.item()->property("renderProcessPid").toLongLong();
    QFile file(QStringLiteral("/proc/%1/task/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = file.readAll();
    const QByteArrayList fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) * 1000 /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// The app's own way: chunks arrive, one every two milliseconds, renders are sent as the page keeps
/// up. Prints what the main thread spent, the engine's share of it included, how often the page was
/// rendered and how busy its main thread was.
void streamTimes(EngineWindow &engine)
{
    std::printf("\na chunk of %d characters every 2 ms through the app, main thread's time in ms\n",
                perFrame);
    std::printf("%-12s %8s %12s %12s %12s %12s %12s\n", "answer", "size", "busy", "per chunk",
                "worst chunk", "renders", "page busy");
    QTemporaryDir folder;
    FakeWorkspace workspace;
    ResponseDisplay display(engine.view, workspace, folder.path());
    StreamingRenderer renderer(display);
    const auto stream = [&](const char *name, const QString &text) {
        renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                                   std::nullopt);
        ResponseDisplay::PageId finished = 0;
        const auto waiting =
            QObject::connect(&display, &ResponseDisplay::pageFinished, &display,
                             [&finished](ResponseDisplay::PageId page) { finished = page; });
        runUntil([&] { return finished == display.latestPage(); });
        QObject::disconnect(waiting);
        int renders = 0;
        const auto counter =
            QObject::connect(&engine.view, &ResponseView::scriptRequested, &engine.view,
                             [&renders](const QString &, double token) { renders += token != 0; });
        qsizetype at = 0;
        double worst = 0;
        const double before = threadMilliseconds();
        const double pageBefore = pageMilliseconds(engine);
        QElapsedTimer clock;
        clock.start();
        QTimer chunks;
        chunks.setTimerType(Qt::PreciseTimer);
        QObject::connect(&chunks, &QTimer::timeout, &chunks, [&] {
            const double start = threadMilliseconds();
            renderer.handleStreamChunk(text.mid(at, perFrame));
            at += perFrame;
            worst = std::max(worst, threadMilliseconds() - start);
        });
        chunks.start(2);
        QEventLoop loop;
        QObject::connect(&chunks, &QTimer::timeout, &loop, [&] {
            if (at >= text.size())
                loop.quit();
        });
        loop.exec();
        chunks.stop();
        const double busy = threadMilliseconds() - before;
        const double pageBusy =
            (pageMilliseconds(engine) - pageBefore) / static_cast<double>(clock.elapsed()) * 100;
        QObject::disconnect(counter);
        renderer.abandonStream();
        std::printf("%-12s %5lld KB %12.1f %12.3f %12.2f %12d %10.0f %%\n", name,
                    text.size() / 1024, busy, busy * perFrame / static_cast<double>(text.size()),
                    worst, renders, pageBusy);
        std::fflush(stdout);
    };
    for (const qsizetype kilobytes : {4, 32, 128, 512})
        stream("usual", answer(kilobytes * 1024));
    stream("one text", giant(128 * 1024, {},
                             QStringLiteral("The consumer may be *slower* than the producer.\n")));
}

} // namespace

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    EngineWindow engine;
    // The page warms up before anything counts.
    measure(engine, answer(2048), renderStep, 32);
    const bool isUsualOnly = argc > 1 && QByteArrayView(argv[1]) == "usual";
    pageTimes(engine, isUsualOnly);
    if (!isUsualOnly)
        streamTimes(engine);
    return 0;
}
