#include "history/ThreadSearch.h"

#include "history/ThreadTextReader.h"
#include "history/TwoWorkers.h"

#include <algorithm>
#include <memory>

namespace quellora {

void ThreadSearch::run(const CaptureSessionStore &store, const ThreadQuery &query, Promise &promise,
                       BatchSizes sizes)
{
    const auto root = store.sessionsRoot();
    // The list of threads has reported it.
    if (!root)
        return;
    const qsizetype count = query.threads.size();
    const auto searchBatch = [&](ThreadTextReader &reader, qsizetype number) {
        const qsizetype begin = number == 0 ? 0 : sizes.first + (number - 1) * sizes.later;
        const qsizetype end = std::min(count, begin + (number == 0 ? sizes.first : sizes.later));
        ThreadHits hits;
        for (qsizetype i = begin; i < end; ++i) {
            if (promise.isCanceled())
                return;
            const QUuid &id = query.threads.at(i);
            if (auto hit = reader.find(id))
                hits.insert(id, *std::move(hit));
        }
        promise.addResult(std::move(hits), int(number));
    };
    // Deliver the first hits before starting a second worker.
    ThreadTextReader first(*root, query.text, query.locale);
    searchBatch(first, 0);
    const qsizetype rest = std::max<qsizetype>(0, count - sizes.first);
    forEachOnTwoWorkers((rest + sizes.later - 1) / sizes.later, [&] {
        return [&, reader = std::make_unique<ThreadTextReader>(*root, query.text, query.locale)](
                   qsizetype i) { searchBatch(*reader, i + 1); };
    });
}

} // namespace quellora
