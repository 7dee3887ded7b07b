#include "history/BackgroundThreadSaver.h"

#include "app/Log.h"

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
    m_worker.start([this, session, failurePrefix] {
        if (const auto saved = m_store.save(session); !saved)
            Log::event(failurePrefix + saved.error().description());
    });
}

void BackgroundThreadSaver::flush()
{
    m_worker.waitForDone();
}

} // namespace quellora
