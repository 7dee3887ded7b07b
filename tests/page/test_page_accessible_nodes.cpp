#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QAccessible>

#include <algorithm>
#include <csignal>

using namespace quellora;

namespace {

/// Objects that stand for nodes of pages.
struct Nodes
{
    int alive = 0;
    int abandoned = 0;
};

void count(const QObject &parent, Nodes &nodes)
{
    for (QObject *child : parent.children()) {
        if (child->metaObject() != &QObject::staticMetaObject)
            continue;
        ++(QAccessible::queryAccessibleInterface(child) ? nodes.alive : nodes.abandoned);
        count(*child, nodes);
    }
}

} // namespace

/// What the engine creates for assistive technology goes with the pages.
class TestPageAccessibleNodes : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void nodesGoWithTheirPage();
    void nodesGoWhilePagesFollowQuickly();
    void nodesOfAGrowingAnswerGo();
    void nodesOfAnEndedProcessGo();

private:
    Nodes nodes() const
    {
        Nodes found;
        count(*m_engine->view.item(), found);
        return found;
    }
    /// Waits until there are nodes of the shown page, and of no other.
    bool onlyLivingNodes(int most = INT_MAX)
    {
        return runUntil([this, most] {
            const Nodes found = nodes();
            return found.alive > 0 && found.alive < most && found.abandoned == 0;
        });
    }
};

void TestPageAccessibleNodes::nodesGoWithTheirPage()
{
    const QString text = QStringLiteral("- *a* b\n- c\n\nd **e**\n\n").repeated(20);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(finished(m_display->loadContent(text)));
        QVERIFY(runUntil([this] { return nodes().alive > 200; }));
    }
    QVERIFY(finished(m_display->loadContent(QStringLiteral("end"))));
    QVERIFY(onlyLivingNodes(30));
}

void TestPageAccessibleNodes::nodesGoWhilePagesFollowQuickly()
{
    const QString text = QStringLiteral("*a* `b`\n\n").repeated(10);
    int most = 0;
    bool isSwept = false;
    for (int i = 0; i < 40 && !isSwept; ++i) {
        QVERIFY(finished(m_display->loadContent(text)));
        // Shorter than the pause of a reader.
        runUntil([this] { return nodes().alive > 40; }, std::chrono::milliseconds(200));
        const int abandoned = nodes().abandoned;
        isSwept = abandoned < most;
        most = std::max(most, abandoned);
    }
    QVERIFY2(isSwept, qPrintable(QString::number(most)));
}

void TestPageAccessibleNodes::nodesOfAGrowingAnswerGo()
{
    StreamingRenderer renderer(*m_display);
    const QDateTime now = QDateTime::currentDateTime();
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), now, std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    // The last paragraph is made anew each time.
    for (int i = 0; i < 100 && nodes().abandoned < 20; ++i) {
        renderer.handleStreamChunk(QStringLiteral("*a* `b` "));
        QVERIFY(m_engine->painted());
    }
    QVERIFY(nodes().abandoned >= 20);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("end"))));
    QVERIFY(onlyLivingNodes());
}

void TestPageAccessibleNodes::nodesOfAnEndedProcessGo()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("a\n\n").repeated(50))));
    QVERIFY(runUntil([this] { return nodes().alive > 50; }));
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    const qint64 pid = m_engine->view.item()->property("renderProcessPid").toLongLong();
    QVERIFY(pid > 1);
    QCOMPARE(::kill(static_cast<pid_t>(pid), SIGKILL), 0);
    QVERIFY(runUntil([&] { return !ended.isEmpty(); }));
    QVERIFY(finished(m_display->loadContent(QStringLiteral("end"))));
    QVERIFY(onlyLivingNodes(30));
}

namespace {

int run(int argc, char **argv)
{
    // Without a connection to assistive technology.
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--force-renderer-accessibility");
    return runEngineTest<TestPageAccessibleNodes>(argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(run)

#include "test_page_accessible_nodes.moc"
