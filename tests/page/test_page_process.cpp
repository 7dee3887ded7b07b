#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <csignal>

using namespace quellora;

namespace {

/// Whether to try also what takes long.
const bool triesAll = qEnvironmentVariableIsSet("QUELLORA_HOSTILE_ALL");

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The parent of a process; 0 if it has ended.
qint64 parentOf(qint64 pid)
{
    static const QRegularExpression line(QStringLiteral("^PPid:\\s*(\\d+)"),
                                         QRegularExpression::MultilineOption);
    const QString status =
        QString::fromLatin1(contentsOf(QStringLiteral("/proc/%1/status").arg(pid)));
    return line.match(status).captured(1).toLongLong();
}

/// All processes that show a page or are about to: the engine has them made by children of this
/// one.
QList<qint64> pageProcesses()
{
    QList<qint64> found;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        const qint64 maker = parentOf(entry.toLongLong());
        if (maker > 0 && parentOf(maker) == QCoreApplication::applicationPid())
            found.append(entry.toLongLong());
    }
    return found;
}

} // namespace

/// The process that runs the page ends unexpectedly.
class TestPageProcess : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void pageIsLoadedAgainWhenItsProcessEnds();
    void streamGoesOnWhenThePageProcessEnds();
    void pageArrivesWhenItsProcessEndsInMidLoad();
    void pageArrivesWheneverProcessesEnd_data();
    void pageArrivesWheneverProcessesEnd();
    void processThatKeepsEndingIsLeftAloneUntilTheNextPage();
    void silentPageIsShownAsText_data();
    void silentPageIsShownAsText();
    void silentPageDuringAnAnswer();
    void codeThatTrapsTheHighlighter_data();
    void codeThatTrapsTheHighlighter();
    void deepNesting_data();
    void deepNesting();

private:
    void killPageProcess(const QString &signal = QStringLiteral("-KILL"));
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
void TestPageProcess::killPageProcess(const QString &signal)
{
    const qint64 pid = m_engine->view.item()->property("renderProcessPid").toLongLong();
    QVERIFY(pid > 1);
    QVERIFY(QProcess::startDetached(QStringLiteral("/bin/kill"), {signal, QString::number(pid)}));
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

void TestPageProcess::pageArrivesWheneverProcessesEnd_data()
{
    QTest::addColumn<int>("pagesBefore");
    QTest::addColumn<int>("milliseconds");
    // The process of the page before shows the next one, or another process begins.
    for (const int pagesBefore : {1, 32}) {
        for (const int milliseconds : {0, 25, 100})
            QTest::addRow("page %d, %d ms", pagesBefore + 1, milliseconds)
                << pagesBefore << milliseconds;
    }
}

void TestPageProcess::pageArrivesWheneverProcessesEnd()
{
    QFETCH(int, pagesBefore);
    QFETCH(int, milliseconds);
    for (int i = 0; i < pagesBefore; ++i)
        QVERIFY(finished(m_display->loadContent(QStringLiteral("before"))));
    m_display->loadContent(QStringLiteral("after"));
    QEventLoop moment;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &moment, &QEventLoop::quit);
    moment.exec();
    const QList<qint64> killed = pageProcesses();
    QVERIFY(!killed.isEmpty());
    for (const qint64 pid : killed)
        ::kill(static_cast<pid_t>(pid), SIGKILL);
    QVERIFY(runUntil([&] {
        return std::none_of(killed.begin(), killed.end(), [](qint64 pid) {
            return !contentsOf(QStringLiteral("/proc/%1/cmdline").arg(pid)).isEmpty();
        });
    }));
    const QString shown = QStringLiteral("document.getElementById('ct')?.innerText.trim()");
    // An ended page leaves questions without an answer.
    ENGINE_TRY_COMPARE(m_engine->value(shown, std::chrono::seconds(1)).toString(),
                       QStringLiteral("after"));
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

void TestPageProcess::silentPageIsShownAsText_data()
{
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("stopped process") << true;
    QTest::newRow("endless script") << false;
}

void TestPageProcess::silentPageIsShownAsText()
{
    QFETCH(bool, isStopped);
    const QString answer = QStringLiteral("**plain** <b>text</b>\n\n- of\n- lines");
    QVERIFY(finished(m_display->loadContent(answer)));
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    QSignalSpy loaded(&m_engine->view, &PageSurface::loadFinished);
    if (isStopped)
        killPageProcess(QStringLiteral("-STOP"));
    else
        m_engine->view.evaluate(QStringLiteral("for (;;) {}"));
    ENGINE_TRY_COMPARE(ended.size(), 1);
    ENGINE_TRY_COMPARE(loaded.size(), 1);
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText")), answer);
    // The next page is rendered.
    QVERIFY(finished(m_display->loadContent(QStringLiteral("**next**"))));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('#ct strong').innerText")),
             QStringLiteral("next"));
    QCOMPARE(ended.size(), 1);
}

void TestPageProcess::silentPageDuringAnAnswer()
{
    const QString slot = QStringLiteral("document.getElementById('streaming-response').innerText");
    CaptureSession session = CaptureSession::create();
    session.addTurn(QStringLiteral("q"), QStringLiteral("*earlier*"), QDateTime::currentDateTime());
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(session, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(QStringLiteral("first *part*\n"));
    ENGINE_TRY_COMPARE(m_engine->text(slot).trimmed(), QStringLiteral("first part"));
    QSignalSpy loaded(&m_engine->view, &PageSurface::loadFinished);
    m_engine->view.evaluate(QStringLiteral("for (;;) {}"));
    renderer.handleStreamChunk(QStringLiteral("and *more*\n"));
    ENGINE_TRY_COMPARE(loaded.size(), 1);
    renderer.handleStreamChunk(QStringLiteral("```c\nint last;"));
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(m_engine->text(slot), QStringLiteral("first *part*\nand *more*\n"
                                                            "```c\nint last;"));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('.turn-response').innerText")),
             QStringLiteral("*earlier*"));
}

void TestPageProcess::codeThatTrapsTheHighlighter_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("unit");
    // What costs most of some hundred patterns, among the languages that cost most.
    QTest::newRow("typescript") << "typescript"
                                << "a";
    QTest::newRow("unknown") << ""
                             << "A";
    if (!triesAll)
        return;
    QTest::newRow("bash") << "bash"
                          << "_0";
    QTest::newRow("csharp") << "csharp"
                            << "func ";
    QTest::newRow("ini") << "ini"
                         << "__";
    QTest::newRow("java") << "java"
                          << "_";
    QTest::newRow("typescript, lines") << "typescript"
                                       << "a\n";
}

/// 512 KiB of code for which the highlighter would take minutes: the page stays and shows all of
/// it.
void TestPageProcess::codeThatTrapsTheHighlighter()
{
    QFETCH(QString, language);
    QFETCH(QString, unit);
    const QString code = unit.repeated(512 * 1024 / unit.size());
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(finished(m_display->loadContent("```" + language + '\n' + code + "\n```")));
    qInfo("512 KiB of %s: %lld ms", QTest::currentDataTag(), clock.elapsed());
    QCOMPARE(
        m_engine->value(QStringLiteral("document.querySelector('pre code').textContent.length"))
            .toInt(),
        code.size() + 1);
    QCOMPARE(ended.size(), 0);
}

void TestPageProcess::deepNesting_data()
{
    QTest::addColumn<QString>("answer");
    constexpr int depth = 100'000;
    QTest::newRow("quotes") << QStringLiteral("> ").repeated(depth) + 'x';
    QTest::newRow("emphasis") << QStringLiteral("*a_").repeated(depth);
    if (!triesAll)
        return;
    QTest::newRow("lists") << QStringLiteral("- ").repeated(depth) + 'x';
    QTest::newRow("brackets") << QStringLiteral("[").repeated(depth);
    QTest::newRow("elements") << QStringLiteral("<b>").repeated(depth) + 'x';
    QTest::newRow("many elements") << QStringLiteral("<i></i>").repeated(depth) + 'x';
}

/// Rendered or, if that takes too long, as text: shown in the end, and so is the next page.
void TestPageProcess::deepNesting()
{
    QFETCH(QString, answer);
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(finished(m_display->loadContent(answer)));
    qInfo("%s: %lld ms, restarts: %lld", QTest::currentDataTag(), clock.elapsed(), ended.size());
    QVERIFY(m_engine->value(QStringLiteral("document.getElementById('ct').textContent.length > 0"))
                .toBool());
    QVERIFY(finished(m_display->loadContent(QStringLiteral("**next**"))));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('#ct strong').innerText")),
             QStringLiteral("next"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageProcess>)

#include "test_page_process.moc"
