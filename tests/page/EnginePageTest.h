#pragma once

#include "EngineWindow.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "page/ResponseDisplay.h"

#include <QTemporaryDir>

#include <memory>

namespace quellora {

/// Base of tests that show pages in the real engine: a fresh view and display for each test.
class EnginePageTest : public QObject
{
    Q_OBJECT

protected Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogCapture>();
        m_engine = std::make_unique<EngineWindow>();
        m_workspace = {};
        m_display = std::make_unique<ResponseDisplay>(m_engine->view, m_workspace, m_dir.path());
        m_finishedPage = 0;
        connect(m_display.get(), &ResponseDisplay::pageFinished, this,
                [this](ResponseDisplay::PageId page) { m_finishedPage = page; });
    }
    void cleanup()
    {
        m_display.reset();
        m_engine.reset();
        m_log.reset();
    }

protected:
    /// Waits until this page has finished loading.
    bool finished(ResponseDisplay::PageId page)
    {
        return runUntil([&] { return m_finishedPage == page; });
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<EngineWindow> m_engine;
    QTemporaryDir m_dir;
    FakeWorkspace m_workspace;
    std::unique_ptr<ResponseDisplay> m_display;
    ResponseDisplay::PageId m_finishedPage = 0;
};

} // namespace quellora
