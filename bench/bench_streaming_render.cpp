#include "fakes/FakePlatform.h"
#include "page/EngineWindow.h"
#include "page/ResponsePage.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"

#include <QGuiApplication>
#include <QTemporaryDir>

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
    if (!engine.load(shellPage()))
        qFatal("the page does not load");
    engine.value(
        QStringLiteral(
            "window.run = (async () => {\n"
            "const text = \"%1\"; const size = %2; const places = %3; const inARow = %4;\n"
            "const slot = document.getElementById('streaming-response'); const times = [];\n"
            "const channel = new MessageChannel(); let resume;\n"
            "channel.port1.onmessage = () => resume();\n"
            "const turn = () => new Promise(r => { resume = r; channel.port2.postMessage(0); });\n"
            "const escaped = s => JSON.stringify(s).replace(/</g, '\\\\u003c');\n"
            "const step = (%5)(slot, escaped);\n"
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
            "const sum = times.reduce((a, b) => a + b, 0); times.sort((a, b) => a - b);\n"
            "window.result = [sum / times.length * frames, times[times.length >> 1],\n"
            "  times[times.length - 1]];\n"
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
            return result.size() == 3;
        },
        std::chrono::minutes(10));
    if (result.size() != 3)
        qFatal("the page did not finish");
    return {result[0].toDouble(), result[1].toDouble(), result[2].toDouble()};
}

/// What the app does: the script of one chunk, compiled and run.
const QString renderStep =
    QStringLiteral("(slot, escaped) => (text, from, end) => { const script = "
                   "\"document.getElementById('streaming-response').innerHTML = marked.parse(\" + "
                   "escaped(text.slice(0, end)) + \");\\ndocument.body.scrollTop = "
                   "document.body.scrollHeight;\"; return () => (0, eval)(script); }");

/// The same without the script behind it: the whole answer is rendered for every chunk.
const QString wholeStep =
    QStringLiteral("slot => { const plain = document.createElement('div'); slot.after(plain); "
                   "return (text, from, end) => () => { plain.innerHTML = "
                   "marked.parse(text.slice(0, end)); "
                   "document.body.scrollTop = document.body.scrollHeight; }; }");

/// The least that can be done: the new characters go to the end as plain text, a block per line.
const QString appendStep = QStringLiteral(
    "slot => (text, from, end) => { const lines = text.slice(from, end).split('\\n'); "
    "return () => { lines.forEach((line, i) => { if (i > 0 || !slot.lastChild) "
    "slot.append(document.createElement('div')); slot.lastChild.append(line); }); "
    "document.body.scrollTop = document.body.scrollHeight; }; }");

void print(const char *name, qsizetype kilobytes, const Result &append, const Result &render)
{
    std::printf("%-12s %5lld KB %12.1f %12.1f %8.2f %8.2f %8.2f\n", name, kilobytes, append.total,
                render.total, render.median, render.worst, render.total / append.total);
    std::fflush(stdout);
}

void pageTimes(EngineWindow &engine, bool isUsualOnly)
{
    std::printf("one script per frame of %d characters, page time in ms\n", perFrame);
    std::printf("%-12s %8s %12s %12s %8s %8s %8s\n", "answer", "size", "append", "render", "median",
                "worst", "ratio");
    for (const qsizetype kilobytes : {4, 32, 128, 512}) {
        const QString text = answer(kilobytes * 1024);
        const Result append = measure(engine, text, appendStep, 16);
        print("usual", kilobytes, append, measure(engine, text, renderStep, 32));
        if (!isUsualOnly)
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
        print(name, kilobytes, measure(engine, text, appendStep, 16),
              measure(engine, text, renderStep, 4));
}

double threadMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// The app's own way: chunks arrive, one every two milliseconds, renders are sent as the page keeps
/// up. Prints what the main thread spent, the engine's share of it included, and how often the page
/// was rendered.
void streamTimes(EngineWindow &engine)
{
    std::printf("\na chunk of %d characters every 2 ms through the app, main thread's time in ms\n",
                perFrame);
    std::printf("%8s %12s %12s %12s %12s\n", "size", "busy", "per chunk", "worst chunk", "renders");
    QTemporaryDir folder;
    FakeWorkspace workspace;
    ResponseDisplay display(engine.view, workspace, folder.path());
    StreamingRenderer renderer(display);
    for (const qsizetype kilobytes : {4, 32, 128, 512}) {
        const QString text = answer(kilobytes * 1024);
        renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                                   std::nullopt);
        runUntil([&] { return renderer.isStreamingShellReady(); });
        int renders = 0;
        const auto counter =
            QObject::connect(&engine.view, &ResponseView::scriptRequested, &engine.view,
                             [&renders](const QString &, double token) { renders += token != 0; });
        qsizetype at = 0;
        double worst = 0;
        const double before = threadMilliseconds();
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
        QObject::disconnect(counter);
        renderer.abandon();
        std::printf("%5lld KB %12.1f %12.3f %12.2f %12d\n", kilobytes, busy,
                    busy * perFrame / static_cast<double>(text.size()), worst, renders);
        std::fflush(stdout);
    }
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
