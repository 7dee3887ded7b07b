#include "overlay/EngineWindow.h"
#include "overlay/page/ResponsePage.h"
#include "overlay/page/WebEngineSetup.h"

#include <QGuiApplication>

#include <cstdio>

using namespace quellora;

namespace {

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

struct Result
{
    double total = 0;
    double worst = 0;
};

/// Runs one script per frame in the page and adds up the time spent in it, layout included. The
/// page yields between frames, so that its observers run as they do with a real stream; their time
/// counts.
Result measure(EngineWindow &engine, const QString &text, int perFrame, const QString &step)
{
    const QByteArray page =
        responsepage::streamingShellPage(std::nullopt, QStringLiteral("question"),
                                         QDateTime::currentDateTime(), std::nullopt, {}, {});
    if (!engine.load(page))
        qFatal("the page does not load");
    engine.value(
        QStringLiteral(
            "window.run = (async () => {\n"
            "const text = `%1`; const size = %2; const times = [];\n"
            "const slot = document.getElementById('streaming-response');\n"
            "const channel = new MessageChannel(); let resume;\n"
            "channel.port1.onmessage = () => resume();\n"
            "const turn = () => new Promise(r => { resume = r; channel.port2.postMessage(0); });\n"
            "const escaped = s => s.replace(/[\\\\`']/g, '\\\\$&').replace(/\\$\\{/g, '\\\\${');\n"
            "const step = %3;\n"
            "slot.textContent = '';\n"
            "for (let end = size; ; end += size) {\n"
            "  const last = end >= text.length;\n"
            "  const run = step(text, Math.min(end, text.length), size, slot, escaped);\n"
            "  const start = performance.now();\n"
            "  run();\n"
            "  void document.body.scrollHeight;\n"
            "  await Promise.resolve();\n"
            "  times.push(performance.now() - start);\n"
            "  if (last) break;\n"
            "  if (times.length % 8 === 0) await turn();\n"
            "}\n"
            "window.result = [times.reduce((a, b) => a + b, 0), Math.max(...times)];\n"
            "})(); 0")
            .arg(responsepage::escapedForTemplateLiteral(text))
            .arg(perFrame)
            .arg(step));
    QVariantList result;
    runUntil(
        [&] {
            result = engine.value(QStringLiteral("window.result")).toList();
            return result.size() == 2;
        },
        std::chrono::minutes(10));
    if (result.size() != 2)
        qFatal("the page did not finish");
    return {result[0].toDouble(), result[1].toDouble()};
}

/// What the app does: the script of one chunk, compiled and run.
const QString renderStep =
    QStringLiteral("(text, end, size, slot, escaped) => { const script = "
                   "\"document.getElementById('streaming-response').innerHTML = marked.parse(`\" + "
                   "escaped(text.slice(0, end)) + \"`);\\ndocument.body.scrollTop = "
                   "document.body.scrollHeight;\"; return () => (0, eval)(script); }");

/// The least that can be done: the new characters go to the end as plain text, a block per line.
const QString appendStep = QStringLiteral(
    "(text, end, size, slot) => { const lines = "
    "text.slice(Math.floor((end - 1) / size) * size, end).split('\\n'); return () => { "
    "lines.forEach((line, i) => { if (i > 0 || !slot.lastChild) "
    "slot.append(document.createElement('div')); slot.lastChild.append(line); }); "
    "document.body.scrollTop = document.body.scrollHeight; }; }");

} // namespace

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    EngineWindow engine;
    // The page warms up before anything counts.
    measure(engine, answer(2048), 32, renderStep);
    const int perFrame = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 32;
    std::printf("streaming render, %d characters per frame, page time in ms\n", perFrame);
    std::printf("%8s %10s %10s %10s %8s\n", "size", "append", "render", "worst", "ratio");
    for (const qsizetype kilobytes : {4, 32, 128, 512}) {
        if (kilobytes == 512 && argc <= 2)
            continue;
        const QString text = answer(kilobytes * 1024);
        const Result append = measure(engine, text, perFrame, appendStep);
        const Result render = measure(engine, text, perFrame, renderStep);
        std::printf("%5lld KB %10.1f %10.1f %10.1f %8.2f\n", static_cast<long long>(kilobytes),
                    append.total, render.total, render.worst, render.total / append.total);
        std::fflush(stdout);
    }
    return 0;
}
