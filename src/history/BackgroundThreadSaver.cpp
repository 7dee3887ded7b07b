#include "history/BackgroundThreadSaver.h"

#include "base/Log.h"

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
    auto job = std::make_shared<Job>(Job{session, failurePrefix, {}, {}, {}});
    m_failed.remove(session.id);
    const auto older = std::find_if(m_queue.begin(), m_queue.end(), [&](const auto &queued) {
        return queued->session && queued->session->id == session.id;
    });
    if (older != m_queue.end())
        *older = std::move(job);
    else
        m_queue.append(std::move(job));
    setState(session.id, {SaveState::Kind::Saving, {}});
    startNext();
}

void BackgroundThreadSaver::runAfterSaves(std::function<void()> work, std::function<void()> after)
{
    m_queue.append(std::make_shared<Job>(Job{{}, {}, {}, std::move(work), std::move(after)}));
    startNext();
}

void BackgroundThreadSaver::retryFailed()
{
    const auto failed = std::exchange(m_failed, {});
    for (const auto &job : failed)
        save(*job->session, job->failurePrefix);
}

void BackgroundThreadSaver::forget(const QUuid &threadId)
{
    m_failed.remove(threadId);
    forgetState(threadId);
}

bool BackgroundThreadSaver::isQueued(const QUuid &threadId) const
{
    return std::any_of(m_queue.begin(), m_queue.end(), [&](const auto &queued) {
        return queued->session && queued->session->id == threadId;
    });
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
    if (m_running || m_queue.isEmpty())
        return;
    m_running = m_queue.takeFirst();
    m_worker.start([this, job = m_running] {
        if (job->session)
            job->result = m_store.save(*job->session);
        else
            job->work();
        QMetaObject::invokeMethod(
            &m_receiver, [this, job] { finish(job); }, Qt::QueuedConnection);
    });
}

void BackgroundThreadSaver::finish(const std::shared_ptr<Job> &job)
{
    // flush() may already have finished this job.
    if (job != m_running)
        return;
    const std::shared_ptr<Job> done = std::exchange(m_running, nullptr);
    if (done->session)
        finishSave(*done);
    else if (done->after)
        done->after();
    startNext();
}

void BackgroundThreadSaver::finishSave(const Job &job)
{
    const QUuid id = job.session->id;
    if (!job.result)
        Log::event(job.failurePrefix + job.result.error().description());
    // If a newer save of the thread is queued, only its result counts.
    const bool isLatest = !isQueued(id);
    if (!job.result) {
        if (isLatest) {
            m_failed.insert(id, std::make_shared<Job>(job));
            setState(id, {SaveState::Kind::Failed, job.result.error().reasonForUser()});
        }
        return;
    }
    if (isLatest)
        setState(id, {SaveState::Kind::Saved, {}});
    // The disk works again, so retry the failed saves.
    retryFailed();
}

} // namespace quellora
