#include "history/BackgroundThreadSaver.h"

#include "app/Log.h"

#include <algorithm>
#include <utility>

namespace quellora {

BackgroundThreadSaver::BackgroundThreadSaver(const CaptureSessionStore &store) : m_store(store)
{
    m_worker.setMaxThreadCount(1);
}

BackgroundThreadSaver::~BackgroundThreadSaver()
{
    flush();
}

void BackgroundThreadSaver::save(const CaptureSession &session, const QString &failurePrefix)
{
    auto job = std::make_shared<Job>(Job{session, failurePrefix, {}, {}});
    const auto older = std::find_if(m_waiting.begin(), m_waiting.end(), [&](const auto &waiting) {
        return waiting->session && waiting->session->id == session.id;
    });
    if (older != m_waiting.end())
        *older = std::move(job);
    else
        m_waiting.append(std::move(job));
    startNext();
}

void BackgroundThreadSaver::runAfterSaves(std::function<void()> work)
{
    m_waiting.append(std::make_shared<Job>(Job{{}, {}, {}, std::move(work)}));
    startNext();
}

void BackgroundThreadSaver::flush()
{
    while (m_running) {
        m_worker.waitForDone();
        finish(m_running);
    }
}

void BackgroundThreadSaver::startNext()
{
    if (m_running || m_waiting.isEmpty())
        return;
    m_running = m_waiting.takeFirst();
    m_worker.start([this, job = m_running] {
        if (job->session)
            job->result = m_store.save(*job->session);
        else
            job->work();
        QMetaObject::invokeMethod(
            &m_reports, [this, job] { finish(job); }, Qt::QueuedConnection);
    });
}

void BackgroundThreadSaver::finish(const std::shared_ptr<Job> &job)
{
    // A flush may have been faster than the worker's report.
    if (job != m_running)
        return;
    const std::shared_ptr<Job> done = std::exchange(m_running, nullptr);
    if (!done->result)
        Log::event(done->failurePrefix + done->result.error().description());
    startNext();
}

} // namespace quellora
