#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "page/EngineWindow.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QTemporaryDir>

#include <algorithm>

using namespace quellora;

namespace {

constexpr int turns = 300;
constexpr int screenshots = 50;
constexpr int notes = 20;

/// A long thread: every sixth turn has a screenshot, and there are notes in between.
CaptureSession longThread()
{
    CaptureSession session = CaptureSession::create();
    QDateTime time(QDate(2024, 3, 1), QTime(8, 0), Qt::UTC);
    for (int i = 0; i < turns; ++i) {
        if (i % (turns / screenshots) == 0) {
            time = time.addSecs(10);
            session.addScreenshot(QByteArray(150'000, static_cast<char>('a' + i % 26)), time);
        }
        if (i % (turns / notes) == 7) {
            time = time.addSecs(10);
            session.addNote(QStringLiteral("note before %1").arg(i), time);
        }
        time = time.addSecs(10);
        session.addTurn(QStringLiteral("prompt %1").arg(i),
                        QStringLiteral("## Answer %1\n\nwith *some* text\n\n```cpp\nint x = %1;"
                                       "\n```\n\n- a\n- b\n")
                            .arg(i),
                        time);
    }
    return session;
}

} // namespace

/// A long thread with many screenshots: everything is shown in order and works.
class TestPageLongThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everythingIsThereInOrder();
    void mainThreadStaysFree();
    void noteIsDeleted();
    void thumbnailOpens();
    void streamGoesBelowIt();

private:
    bool finished(ResponseDisplay::PageId page)
    {
        return runUntil([&] { return m_finishedPage == page; });
    }

    LogCapture m_log;
    EngineWindow m_engine;
    QTemporaryDir m_dir;
    FakeWorkspace m_workspace;
    ResponseDisplay m_display{m_engine.view, m_workspace, m_dir.path()};
    ResponseDisplay::PageId m_finishedPage = 0;
    CaptureSession m_thread = longThread();
};

void TestPageLongThread::initTestCase()
{
    connect(&m_display, &ResponseDisplay::pageFinished, this,
            [this](ResponseDisplay::PageId page) { m_finishedPage = page; });
    // The engine starts before anything is measured.
    QVERIFY(finished(m_display.loadContent(QStringLiteral("x"))));
}

void TestPageLongThread::mainThreadStaysFree()
{
    // The page is built on a worker: the call returns long before it is ready.
    QElapsedTimer clock;
    clock.start();
    const auto page = m_display.renderThread(m_thread);
    const qint64 call = clock.elapsed();
    QVERIFY2(call < 50, qPrintable(QString::number(call)));
    QVERIFY(m_log.lines.last().contains(QStringLiteral("renderThread() — 20 notes, 300 turns")));
    QVERIFY(finished(page));
}

void TestPageLongThread::everythingIsThereInOrder()
{
    QVERIFY(finished(m_display.renderThread(m_thread)));
    QStringList expected;
    for (const ThreadEntry &entry : chronologicalEntries(m_thread)) {
        if (const auto *note = std::get_if<CaptureSession::Note>(&entry))
            expected.append(note->text);
        else
            expected.append(std::get<CaptureSession::Turn>(entry).prompt);
    }
    QCOMPARE(expected.size(), turns + notes);
    QCOMPARE(
        m_engine.text(QStringLiteral("[...document.querySelectorAll('.note-text,.prompt-text')]"
                                     ".map(e => e.innerText).join('\\n')")),
        expected.join(QLatin1Char('\n')));
    QCOMPARE(m_engine.text(QStringLiteral("[...document.querySelectorAll('.turn-response h2')]"
                                          ".map(e => e.innerText.slice(7)).join()")),
             [] {
                 QStringList numbers;
                 for (int i = 0; i < turns; ++i)
                     numbers.append(QString::number(i));
                 return numbers.join(QLatin1Char(','));
             }());
    QCOMPARE(
        m_engine.value(QStringLiteral("document.querySelectorAll('pre code.hljs').length")).toInt(),
        turns);
    QCOMPARE(
        m_engine.value(QStringLiteral("document.querySelectorAll('img.thumb').length")).toInt(),
        screenshots);
    // A thread opens scrolled to its end.
    QVERIFY(m_engine
                .value(QStringLiteral("Math.abs(document.body.scrollHeight - "
                                      "document.body.clientHeight - document.body.scrollTop) < 2"))
                .toBool());
}

void TestPageLongThread::noteIsDeleted()
{
    QSignalSpy deleted(&m_display, &ResponseDisplay::noteDeleteRequested);
    QVERIFY(m_engine.click(QStringLiteral("document.querySelectorAll('.note-delete')[11]")));
    ENGINE_TRY_COMPARE(deleted.size(), 1);
    QCOMPARE(deleted[0][0].toUuid(), m_thread.notes[11].id);
}

void TestPageLongThread::thumbnailOpens()
{
    QVERIFY(m_engine.click(QStringLiteral("document.querySelectorAll('img.thumb')[49]")));
    ENGINE_TRY_COMPARE(m_workspace.files.size(), 1);
    QFile file(m_workspace.files[0]);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll() == m_thread.screenshots.last().imageData);
}

void TestPageLongThread::streamGoesBelowIt()
{
    StreamingRenderer renderer(m_display);
    renderer.handleStreamStart(m_thread, QStringLiteral("one more"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display.latestPage()));
    renderer.handleStreamChunk(QStringLiteral("the *newest*"));
    ENGINE_TRY_COMPARE(
        m_engine.text(QStringLiteral("document.getElementById('ct').lastChild.lastChild.innerText"
                                     ".trim()")),
        QStringLiteral("the newest"));
    QCOMPARE(
        m_engine.value(QStringLiteral("document.querySelectorAll('.turn-entry').length")).toInt(),
        turns + 1);
    renderer.handleStreamEnd();
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageLongThread>)

#include "test_page_long_thread.moc"
