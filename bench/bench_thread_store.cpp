// One more turn in a long thread: a save of 300 turns and 50 screenshots of 200 KB that are on the
// disk already, against writing the same JSON bytes with one plain QSaveFile.

#include "history/CaptureSessionStore.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

using namespace quellora;

namespace {

constexpr int turnCount = 300;
constexpr int screenshotCount = 50;
constexpr int imageSize = 200'000;

CaptureSession longThread()
{
    const QDateTime now = QDateTime::currentDateTime();
    CaptureSession session = CaptureSession::create(now);
    session.resumeTurnPersistingFromDisk();
    for (int i = 0; i < screenshotCount; ++i)
        session.addScreenshot(QByteArray(imageSize, static_cast<char>('a' + i % 26)), now, now);
    for (int i = 0; i < turnCount; ++i) {
        session.addTurn(
            QStringLiteral("What does figure %1 show?").arg(i),
            QStringLiteral("It shows a *curve* with `%1` points.\n").arg(i).repeated(40), now, now);
    }
    return session;
}

/// The thread on a disk, and its description's bytes.
struct Disk
{
    Disk()
    {
        if (!store.save(session))
            qFatal("The thread could not be stored");
        QFile file(folder.filePath(
            QStringLiteral("Quellora/sessions/%1/session.json").arg(uuidText(session.id))));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("The description could not be read");
        json = file.readAll();
    }

    void saveOnceMore() const
    {
        if (!store.save(session))
            qFatal("The thread could not be stored");
    }

    void writePlainly() const
    {
        QSaveFile file(folder.filePath(QStringLiteral("plain.json")));
        file.setDirectWriteFallback(false);
        if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
            qFatal("The file could not be written");
    }

    CaptureSession session = longThread();
    QByteArray json;

private:
    QTemporaryDir folder;
    CaptureSessionStore store{folder.path()};
};

const Disk &disk()
{
    static const Disk disk;
    return disk;
}

void saveOfOneMoreTurn(benchmark::State &state)
{
    for (auto _ : state)
        disk().saveOnceMore();
}
BENCHMARK(saveOfOneMoreTurn)->Unit(benchmark::kMicrosecond);

void plainSaveFile(benchmark::State &state)
{
    for (auto _ : state)
        disk().writePlainly();
}
BENCHMARK(plainSaveFile)->Unit(benchmark::kMicrosecond);

/// Both in turn, so that a busy disk hurts both alike; the medians' ratio.
void printRatio()
{
    constexpr int rounds = 200;
    using Clock = std::chrono::steady_clock;
    const auto microseconds = [](auto &&work) {
        const auto start = Clock::now();
        work();
        return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    };
    std::vector<double> saves;
    std::vector<double> writes;
    for (int i = 0; i < rounds; ++i) {
        saves.push_back(microseconds([] { disk().saveOnceMore(); }));
        writes.push_back(microseconds([] { disk().writePlainly(); }));
    }
    const auto median = [](std::vector<double> &times) {
        std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
        return times[rounds / 2];
    };
    const double save = median(saves);
    const double write = median(writes);
    std::printf(
        "one more save of %d turns and %d screenshots: %.0f us; the same %lld bytes of JSON "
        "with one QSaveFile: %.0f us; ratio %.2f\n",
        turnCount, screenshotCount, save, disk().json.size(), write, save / write);
}

} // namespace

int main(int argc, char *argv[])
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    printRatio();
    return 0;
}
