#pragma once

#include <QThread>
#include <QtGlobal>

#include <atomic>
#include <thread>

namespace quellora {

/// Calls the functor that @p makeWork creates per worker with 0 to @p count - 1, each number once
/// and roughly in order: on the calling thread and, given more than one number and processor, on a
/// second one. Blocking.
template <typename MakeWork>
void forEachOnTwoWorkers(qsizetype count, MakeWork makeWork)
{
    std::atomic<qsizetype> next = 0;
    const auto run = [&] {
        auto work = makeWork();
        for (qsizetype i = next++; i < count; i = next++)
            work(i);
    };
    if (count < 2 || QThread::idealThreadCount() < 2) {
        run();
        return;
    }
    std::thread second(run);
    run();
    second.join();
}

} // namespace quellora
