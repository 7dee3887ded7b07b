#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QProcess>

using namespace quellora;

/// The process that runs the page ends unexpectedly.
class TestPageProcess : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void pageIsLoadedAgainWhenItsProcessEnds();
    void streamGoesOnWhenThePageProcessEnds();
    void pageArrivesWhenItsProcessEndsInMidLoad();
    void processThatKeepsEndingIsLeftAloneUntilTheNextPage();

private:
    void killPageProcess();
};

void TestPageProcess::pageIsLoadedAgainWhenItsProcessEnds()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("still here"))));
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    QSignalSpy loaded(&m_engine->view, &PageSurface::loadFinished);
    killPageProcess();
    ENGINE_TRY_COMPARE(ended.size(), 1);
    ENGINE_TRY_COMPARE(loaded.size(), 1);
    QVERIFY(m_log->lines.filter(QStringLiteral("[ResponseView] ERROR: The page's process ended"))
                .size() == 1);
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText")).trimmed(),
             QStringLiteral("still here"));
}

/// Kills the process that runs the page, a child of this one.
void TestPageProcess::killPageProcess()
{
    const qint64 pid = m_engine->view.item()->property("renderProcessPid").toLongLong();
    QVERIFY(pid > 1);
    QVERIFY(QProcess::startDetached(QStringLiteral("/bin/kill"),
                                    {QStringLiteral("-KILL"), QString::number(pid)}));
}

void TestPageProcess::streamGoesOnWhenThePageProcessEnds()
{
    const QString slot =
        QStringLiteral("document.getElementById('streaming-response').innerText.trim()");
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(QStringLiteral("first `part`"));
    ENGINE_TRY_COMPARE(m_engine->text(slot), QStringLiteral("first part"));
    m_display->setAppliedTheme(AppTheme::Light);
    m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
    m_display->applyTheme();
    m_display->setCurrentAlpha(0);
    m_display->pushPillAlphaLive();

    QSignalSpy loaded(&m_engine->view, &PageSurface::loadFinished);
    killPageProcess();
    ENGINE_TRY_COMPARE(loaded.size(), 1);
    // Without another chunk, and with the user's appearance settings.
    ENGINE_TRY_COMPARE(m_engine->text(slot), QStringLiteral("first part"));
    QCOMPARE(m_engine->text(QStringLiteral("document.body.className")), QStringLiteral("light"));
    QCOMPARE(m_engine->text(QStringLiteral("document.documentElement.style"
                                           ".getPropertyValue('--text')")),
             QStringLiteral("#8899aa"));
    QCOMPARE(m_engine->text(QStringLiteral("getComputedStyle(document.documentElement)"
                                           ".getPropertyValue('--pill-alpha').trim()")),
             QStringLiteral("0.72"));

    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    killPageProcess();
    ENGINE_TRY_COMPARE(ended.size(), 1);
    renderer.handleStreamChunk(QStringLiteral(" and\n\n```cpp\nint last;\n```"));
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(loaded.size(), 2);
    ENGINE_TRY_COMPARE(
        m_engine->text(QStringLiteral("document.querySelector('pre code .hljs-type')?.innerText")),
        QStringLiteral("int"));
    QVERIFY(m_engine->text(slot).startsWith(QStringLiteral("first part and")));
}

void TestPageProcess::pageArrivesWhenItsProcessEndsInMidLoad()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("before"))));
    CaptureSession session = CaptureSession::create();
    for (int i = 0; i < 40; ++i)
        session.addScreenshot(QByteArray(142'000, 'a'), QDateTime::currentDateTime());
    QSignalSpy started(&m_engine->view, &ResponseView::navigateTo);
    const auto page = m_display->renderThread(session);
    QVERIFY(runUntil([&] { return !started.isEmpty(); }));
    killPageProcess();
    QVERIFY(finished(page));
    ENGINE_TRY_COMPARE(m_engine->value(QStringLiteral("document.images.length")).toInt(), 40);
}

void TestPageProcess::processThatKeepsEndingIsLeftAloneUntilTheNextPage()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("unlucky"))));
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    QSignalSpy loaded(&m_engine->view, &PageSurface::loadFinished);
    for (int i = 1; i <= 4; ++i) {
        killPageProcess();
        ENGINE_TRY_COMPARE(ended.size(), i);
        if (i < 4)
            ENGINE_TRY_COMPARE(loaded.size(), i);
    }
    QVERIFY(m_engine->view.isPageLost());
    QCOMPARE(m_log->lines.filter(QStringLiteral("too often")).size(), 1);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("next"))));
    QVERIFY(!m_engine->view.isPageLost());
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText.trim()")),
             QStringLiteral("next"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageProcess>)

#include "test_page_process.moc"
