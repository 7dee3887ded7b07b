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

/// Characters per chunk; each frame renders one chunk.
constexpr int charactersPerFrame = 32;
/// Number of points in the growing answer at which consecutive frames are measured. Adjacent frames
/// cost about the same, so samples are sufficient to extrapolate the total.
constexpr int samplePoints = 16;

/// Typical Markdown of @p size characters: headings, lists, paragraphs, code and tables.
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

/// A single unfinished block of @p size characters: @p start, then @p line repeated.
QString singleBlock(qsizetype size, const QString &start, const QString &line)
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
    // Here the page itself compiles scripts with eval(), so remove the policy that forbids it.
    const qsizetype policy = page.indexOf("<meta http-equiv");
    return page.remove(policy, page.indexOf('>', policy) + 1 - policy);
}

/// Runs one script per frame in the page and measures its time, including layout. The page yields
/// between frames, so that its observers run as with a real stream.
Result measure(EngineWindow &engine, const QString &text, const QString &step, int framesPerSample)
{
    if (!engine.load({shellPage()}))
        qFatal("the page does not load");
    engine.value(
        QStringLiteral(
            "window.run = (async () => {\n"
            "const text = \"%1\"; const size = %2; const samplePoints = %3; const framesPerSample "
            "= %4;\n"
            "const slot = document.getElementById('streaming-response'); const times = [];\n"
            "const channel = new MessageChannel(); let resume;\n"
            "channel.port1.onmessage = () => resume();\n"
            "const turn = () => new Promise(r => { resume = r; channel.port2.postMessage(0); });\n"
            "const literal = s => JSON.stringify(s).replace(/</g, '\\\\u003c');\n"
            "const step = (%5)(slot, literal);\n"
            "const frames = Math.ceil(text.length / size);\n"
            "const row = Math.min(framesPerSample, Math.floor(frames / samplePoints));\n"
            "slot.textContent = ''; let done = 0;\n"
            "for (let place = 1; place <= samplePoints; ++place) {\n"
            "  const last = Math.floor(frames * place / samplePoints);\n"
            "  for (let frame = last - row - 1; frame < last; ++frame) {\n"
            "    const end = Math.min((frame + 1) * size, text.length);\n"
            "    const run = step(text, done, end); done = end;\n"
            "    const start = performance.now();\n"
            "    run();\n"
            "    void document.body.scrollHeight;\n"
            "    await Promise.resolve();\n"
            // The first frame of a sample also renders the skipped text and does not count.
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
            .arg(charactersPerFrame)
            .arg(samplePoints)
            .arg(framesPerSample)
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

/// The app's rendering: compiles and runs the script of one chunk.
const QString renderStep =
    QStringLiteral("(slot, literal) => (text, from, end) => { const script = \"answers.append(\" + "
                   "literal(text.slice(from, end)) + \");\"; return () => (0, eval)(script); }");

/// Renders the whole answer again for every chunk.
const QString wholeStep =
    QStringLiteral("slot => { const plain = document.createElement('div'); slot.after(plain); "
                   "return (text, from, end) => () => { answers.show(plain, text.slice(0, end)); "
                   "document.body.scrollTop = document.body.scrollHeight; }; }");

/// Lower bound: appends the new characters as plain text, with one block per line.
const QString appendStep = QStringLiteral(
    "slot => (text, from, end) => { const lines = text.slice(from, end).split('\\n'); "
    "return () => { lines.forEach((line, i) => { if (i > 0 || !slot.lastChild) "
    "slot.append(document.createElement('div')); slot.lastChild.append(line); }); "
    "document.body.scrollTop = document.body.scrollHeight; }; }");

/// The run with the median total time of three.
Result medianOf(EngineWindow &engine, const QString &text, const QString &step, int framesPerSample)
{
    std::array<Result, 3> runs;
    for (Result &run : runs)
        run = measure(engine, text, step, framesPerSample);
    std::sort(runs.begin(), runs.end(),
              [](const Result &a, const Result &b) { return a.total < b.total; });
    return runs[1];
}

void print(const char *name, qsizetype kilobytes, const Result &append, const Result &render)
{
    std::printf("%-12s %5lld KB %12.1f %12.1f %8.2f %8.2f %8.2f %8.2f\n", name, kilobytes,
                append.total, render.total, render.median, render.p99, render.worst,
                render.total / append.total);
    static_cast<void>(std::fflush(stdout));
}

void measurePage(EngineWindow &engine, bool onlyUsual)
{
    std::printf("one script per frame of %d characters, page time in ms, median of three runs; "
                "single frames without the first\n",
                charactersPerFrame);
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
        if (!onlyUsual && kilobytes <= 32)
            print("whole", kilobytes, append, measure(engine, text, wholeStep, 1));
    }
    if (onlyUsual)
        return;
    const qsizetype kilobytes = 128;
    const struct
    {
        const char *name;
        QString text;
    } singleBlocks[]{
        {"one fence", singleBlock(kilobytes * 1024, QStringLiteral("```cpp\n"),
                                  QStringLiteral("queue.push(values[i]); // <next>\n"))},
        {"one list",
         singleBlock(kilobytes * 1024, {},
                     QStringLiteral("- a point about `push` and *pop*, of usual length\n"))},
        {"one table", singleBlock(kilobytes * 1024, QStringLiteral("| call | cost |\n|---|---|\n"),
                                  QStringLiteral("| `push` of one entry | 1 |\n"))},
        {"one quote",
         singleBlock(kilobytes * 1024, {},
                     QStringLiteral("> The consumer may be slower than the producer.\n"))},
        {"one text",
         singleBlock(kilobytes * 1024, {},
                     QStringLiteral("The consumer may be *slower* than the producer.\n"))},
    };
    for (const auto &[name, text] : singleBlocks)
        print(name, kilobytes, medianOf(engine, text, appendStep, 16),
              medianOf(engine, text, renderStep, 4));
}

double threadMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// CPU time of the page's main thread in milliseconds.
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

/// Streams through the app's renderer with one chunk every 2 ms; renders are sent at the rate that
/// the page can handle. Prints the main thread's CPU time including the engine's part, the number
/// of renders and the load of the page's main thread.
void measureStream(EngineWindow &engine)
{
    std::printf("\na chunk of %d characters every 2 ms through the app, main thread's time in ms\n",
                charactersPerFrame);
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
            renderer.handleStreamChunk(text.mid(at, charactersPerFrame));
            at += charactersPerFrame;
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
        std::printf(
            "%-12s %5lld KB %12.1f %12.3f %12.2f %12d %10.0f %%\n", name, text.size() / 1024, busy,
            busy * charactersPerFrame / static_cast<double>(text.size()), worst, renders, pageBusy);
        static_cast<void>(std::fflush(stdout));
    };
    for (const qsizetype kilobytes : {4, 32, 128, 512})
        stream("usual", answer(kilobytes * 1024));
    stream("one text",
           singleBlock(128 * 1024, {},
                       QStringLiteral("The consumer may be *slower* than the producer.\n")));
}

} // namespace

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    EngineWindow engine;
    // Warm up the page.
    measure(engine, answer(2048), renderStep, 32);
    const bool onlyUsual = argc > 1 && QByteArrayView(argv[1]) == "usual";
    measurePage(engine, onlyUsual);
    if (!onlyUsual)
        measureStream(engine);
    return 0;
}
