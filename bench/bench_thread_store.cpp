// Compares saving one more turn of a long thread, with 300 turns and 50 screenshots of 200 KB that
// are already on the disk, with writing the same JSON bytes with a single QSaveFile.

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

/// The stored thread and the bytes of its description.
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

    void saveAgain() const
    {
        if (!store.save(session))
            qFatal("The thread could not be stored");
    }

    void writePlainFile() const
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
    for ([[maybe_unused]] const auto &_ : state)
        disk().saveAgain();
}
BENCHMARK(saveOfOneMoreTurn)->Unit(benchmark::kMicrosecond);

void plainSaveFile(benchmark::State &state)
{
    for ([[maybe_unused]] const auto &_ : state)
        disk().writePlainFile();
}
BENCHMARK(plainSaveFile)->Unit(benchmark::kMicrosecond);

/// Prints the ratio of the medians. Alternates both, so that load on the disk affects them alike.
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
        saves.push_back(microseconds([] { disk().saveAgain(); }));
        writes.push_back(microseconds([] { disk().writePlainFile(); }));
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
