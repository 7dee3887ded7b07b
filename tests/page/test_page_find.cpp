#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QImage>

using namespace quellora;

namespace {

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0));

} // namespace

/// Finding text in the page. The marks' layer is closed, so they are seen in pictures only.
class TestPageFind : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void countsOccurrences_data();
    void countsOccurrences();
    void searchesOnlyTheThreadsTexts();
    void stepsGoAround();
    void currentOccurrenceIsScrolledTo();
    void veryLongTextIsSearched();
    void clampedTextIsExpanded();
    void wideCodeIsScrolled();
    void marksAreShownAndRemoved();
    void pageItselfStaysAsItIs();
    void growingAnswerIsCountedAndNotDisturbed();
    void nextPageIsSearched();
    void entryOfAHitIsShown();
    void pageScriptsCannotReachIt();

private:
    void listen()
    {
        m_result.clear();
        connect(m_display.get(), &ResponseDisplay::findResultChanged, this,
                [this](int current, int total) {
                    m_result = QStringLiteral("%1/%2").arg(current).arg(total);
                });
    }
    bool show(const QString &markdown)
    {
        listen();
        return finished(m_display->loadContent(markdown));
    }
    bool showThread(const CaptureSession &session)
    {
        listen();
        return finished(m_display->renderThread(session));
    }
    /// Finds a text; returns "current/total".
    QString find(const QString &text)
    {
        m_result.clear();
        m_display->find(text);
        runUntil([this] { return !m_result.isEmpty(); });
        return m_result;
    }
    QString next()
    {
        m_result.clear();
        m_display->findNext();
        runUntil([this] { return !m_result.isEmpty(); });
        return m_result;
    }
    double position()
    {
        return m_engine->value(QStringLiteral("document.body.scrollTop")).toDouble();
    }
    /// Number of reddish or yellowish pixels, which nothing but marks has.
    int markedPixels()
    {
        m_engine->painted();
        const QImage picture = m_engine->window().grabWindow();
        int count = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                const QColor color = picture.pixelColor(x, y);
                count += color.red() > color.blue() + 60 && color.red() > 80 ? 1 : 0;
            }
        }
        return count;
    }

    QString m_result;
};

void TestPageFind::countsOccurrences_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("result");
    QTest::newRow("plain") << "one two one"
                           << "one"
                           << "1/2";
    QTest::newRow("case") << "One oNE"
                          << "onE"
                          << "1/2";
    QTest::newRow("accents") << "resume résumé re\u0301sume\u0301"
                             << "Résumé"
                             << "1/3";
    QTest::newRow("longer form") << "Straße"
                                 << "strasse"
                                 << "1/1";
    QTest::newRow("across markup") << "a **bold** word"
                                   << "a bold w"
                                   << "1/1";
    QTest::newRow("within a word's markup") << "b*ol*d"
                                            << "bold"
                                            << "1/1";
    QTest::newRow("across a line break") << "one\ntwo"
                                         << "one two"
                                         << "1/1";
    QTest::newRow("not across paragraphs") << "one\n\ntwo"
                                           << "one two"
                                           << "0/0";
    QTest::newRow("not across list items") << "- one\n- two"
                                           << "onetwo"
                                           << "0/0";
    QTest::newRow("in code") << "```js\nlet  value = 1;\n```"
                             << "let value"
                             << "1/1";
    QTest::newRow("not overlapping") << "aaaa"
                                     << "aa"
                                     << "1/2";
    QTest::newRow("surrounding spaces") << "one two"
                                        << "  two "
                                        << "1/1";
    QTest::newRow("emoji") << "a 😀 b 😀"
                           << "😀"
                           << "1/2";
    QTest::newRow("expressions are texts") << "a.c abc $1"
                                           << "a.c"
                                           << "1/1";
    QTest::newRow("quotes") << "say \"hi\" \\ </script>"
                            << "\"hi\" \\"
                            << "1/1";
    QTest::newRow("markup as text") << "`<b>x</b>`"
                                    << "<b>x"
                                    << "1/1";
    QTest::newRow("amounts of white space") << "```\n a \t b\n\n  c  d\n```"
                                            << "a b c d"
                                            << "1/1";
    QTest::newRow("accents among plain words") << "a plan naïve plan"
                                               << "plan naive plan"
                                               << "1/1";
    QTest::newRow("many words") << QStringLiteral("w ").repeated(1200) + QStringLiteral("end")
                                << "w w w end"
                                << "1/1";
    QTest::newRow("all of many words") << QStringLiteral("w ").repeated(1200) << "w w"
                                       << "1/600";
    QTest::newRow("absent") << "one"
                            << "two"
                            << "0/0";
    QTest::newRow("blank") << "one"
                           << "  "
                           << "0/0";
    QTest::newRow("empty") << "one"
                           << ""
                           << "0/0";
}

void TestPageFind::countsOccurrences()
{
    QFETCH(QString, markdown);
    QFETCH(QString, text);
    QFETCH(QString, result);
    QVERIFY(show(markdown));
    QCOMPARE(find(text), result);
}

void TestPageFind::searchesOnlyTheThreadsTexts()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addTurn(QStringLiteral("a copy?"), QStringLiteral("```js\ncopy()\n```"), noon, noon);
    session.addNote(QStringLiteral("the copy"), noon);
    QVERIFY(showThread(session));
    QVERIFY(m_engine->painted());
    // Neither the Copy button nor the times and labels of the page.
    QCOMPARE(find(QStringLiteral("copy")).section(u'/', 1), QStringLiteral("3"));
    QCOMPARE(find(QStringLiteral("12:00")), QStringLiteral("0/0"));
}

void TestPageFind::stepsGoAround()
{
    QVERIFY(show(QStringLiteral("x one x two x")));
    QCOMPARE(find(QStringLiteral("x")), QStringLiteral("1/3"));
    QCOMPARE(next(), QStringLiteral("2/3"));
    QCOMPARE(next(), QStringLiteral("3/3"));
    QCOMPARE(next(), QStringLiteral("1/3"));
    m_display->findPrevious();
    ENGINE_TRY_COMPARE(m_result, QStringLiteral("3/3"));
    // Without an occurrence nothing happens.
    QCOMPARE(find(QStringLiteral("y")), QStringLiteral("0/0"));
    m_display->findNext();
    QCOMPARE(find(QStringLiteral("two")), QStringLiteral("1/1"));
    QCOMPARE(m_log->lines.filter(QStringLiteral("malformed")), QStringList());
}

void TestPageFind::currentOccurrenceIsScrolledTo()
{
    QVERIFY(show(QStringLiteral("needle\n\n") + QStringLiteral("line\n\n").repeated(60) +
                 QStringLiteral("needle\n\n") + QStringLiteral("line\n\n").repeated(60)));
    m_engine->value(QStringLiteral("document.body.scrollTop = 0"));
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/2"));
    QCOMPARE(position(), 0.0);
    QCOMPARE(next(), QStringLiteral("2/2"));
    const double second = position();
    QVERIFY(second > 500);
    QVERIFY(m_engine
                ->value(QStringLiteral("(() => { const p = [...document.querySelectorAll('p')]"
                                       ".filter(e => e.textContent === 'needle')[1]"
                                       ".getBoundingClientRect();"
                                       "return p.top > 0 && p.bottom < innerHeight; })()"))
                .toBool());
    // The search starts with what is in view.
    QCOMPARE(find(QStringLiteral("needl")), QStringLiteral("2/2"));
    QCOMPARE(position(), second);
    QCOMPARE(next(), QStringLiteral("1/2"));
    QVERIFY(position() < 50);
}

/// As long as an answer may be. The engine has not laid out what is far away.
void TestPageFind::veryLongTextIsSearched()
{
    const QString line = QStringLiteral("- a *line* of a very long answer, and `more`\n");
    const qsizetype half = (4 << 20) / line.size();
    QSignalSpy ended(&m_engine->view, &PageSurface::renderProcessTerminated);
    const QString text = line.repeated(half) + QStringLiteral("a *needle*\n") +
                         line.repeated(half) + QStringLiteral("another needle");
    QVERIFY(show(text));
    QCOMPARE(m_engine->value(QStringLiteral("document.getElementById('ct').textContent.length"))
                 .toLongLong(),
             text.size());
    m_engine->value(QStringLiteral("document.body.scrollTop = 0"));
    QCOMPARE(find(QStringLiteral("*needle")), QStringLiteral("1/1"));
    const QString isSeen = QStringLiteral(R"((() => {
        const piece = [...document.querySelectorAll('.as-text > div')]
            .find(e => e.textContent.includes('*needle*'));
        const range = new Range();
        range.setStart(piece.firstChild, piece.firstChild.data.indexOf('needle'));
        range.setEnd(piece.firstChild, piece.firstChild.data.indexOf('needle') + 6);
        const { top, bottom } = range.getBoundingClientRect();
        return top > 0 && bottom < innerHeight; })())");
    QVERIFY(runUntil([&] { return m_engine->value(isSeen).toBool(); }));
    QVERIFY(runUntil([this] { return markedPixels() > 100; }));
    QVERIFY(m_engine->value(isSeen).toBool());
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/2"));
    QCOMPARE(next(), QStringLiteral("2/2"));
    // What has not been laid out is copied. A part of it: the engine lays out what is selected, and
    // the page answers nothing meanwhile.
    const qsizetype copied =
        m_engine
            ->value(QStringLiteral(
                "(() => { const pieces = document.querySelector('.as-text').children;"
                "getSelection().setBaseAndExtent(pieces[20], 0, pieces[24], 0);"
                "return [...pieces].slice(20, 24)"
                ".reduce((sum, piece) => sum + piece.textContent.length, 0); })()"))
            .toLongLong();
    QVERIFY(copied > 4 * line.size());
    QCOMPARE(m_engine->value(QStringLiteral("String(getSelection()).length")).toLongLong(), copied);
    QCOMPARE(ended.size(), 0);
}

void TestPageFind::clampedTextIsExpanded()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addTurn(QStringLiteral("first line needle ") +
                        QStringLiteral("many words ").repeated(100) + QStringLiteral("hidden"),
                    QStringLiteral("answer"), noon, noon);
    QVERIFY(showThread(session));
    const QString isExpanded =
        QStringLiteral("document.querySelector('.prompt-text').classList.contains('expanded')");
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/1"));
    QVERIFY(!m_engine->value(isExpanded).toBool());
    QCOMPARE(find(QStringLiteral("hidden")), QStringLiteral("1/1"));
    QVERIFY(m_engine->value(isExpanded).toBool());
}

void TestPageFind::wideCodeIsScrolled()
{
    QVERIFY(show(QStringLiteral("```\n") + QStringLiteral("x").repeated(300) +
                 QStringLiteral(" needle\n```")));
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/1"));
    QVERIFY(m_engine
                ->value(QStringLiteral("[...document.querySelectorAll('pre, pre *')]"
                                       ".some(e => e.scrollLeft > 500)"))
                .toBool());
}

void TestPageFind::marksAreShownAndRemoved()
{
    QVERIFY(show(QStringLiteral("a needle and a needle")));
    QCOMPARE(markedPixels(), 0);
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/2"));
    QVERIFY(runUntil([this] { return markedPixels() > 200; }));
    QCOMPARE(find(QString()), QStringLiteral("0/0"));
    QVERIFY(runUntil([this] { return markedPixels() == 0; }));
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/2"));
    QVERIFY(runUntil([this] { return markedPixels() > 200; }));
    m_display->endFind();
    QVERIFY(runUntil([this] { return markedPixels() == 0; }));
}

void TestPageFind::pageItselfStaysAsItIs()
{
    QVERIFY(show(QStringLiteral("a **needle** and\n\n- a needle")));
    const QString body = m_engine->text(QStringLiteral("document.body.outerHTML"));
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/2"));
    QVERIFY(m_engine->painted());
    QCOMPARE(m_engine->text(QStringLiteral("document.body.outerHTML")), body);
    QCOMPARE(m_engine->text(QStringLiteral("String(getSelection())")), QString());
}

void TestPageFind::growingAnswerIsCountedAndNotDisturbed()
{
    listen();
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), noon, std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    for (int i = 0; i < 60; ++i)
        renderer.handleStreamChunk(QStringLiteral("a needle here\n\n"));
    const auto paragraphs = [this] {
        return m_engine->value(QStringLiteral("document.querySelectorAll('#ct p').length")).toInt();
    };
    ENGINE_TRY_COMPARE(paragraphs(), 60);
    QVERIFY(find(QStringLiteral("needle")).endsWith(QStringLiteral("/60")));
    QString current = m_result.section(u'/', 0, 0);
    m_display->scrollToFraction(0.3);
    QVERIFY(runUntil([this] { return position() > 10; }));
    QVERIFY(m_engine->painted());
    const double before = position();
    for (int i = 0; i < 40; ++i)
        renderer.handleStreamChunk(QStringLiteral("a needle here\n\n"));
    ENGINE_TRY_COMPARE(m_result, current + QStringLiteral("/100"));
    QCOMPARE(paragraphs(), 100);
    QCOMPARE(position(), before);
}

void TestPageFind::nextPageIsSearched()
{
    QVERIFY(show(QStringLiteral("one needle")));
    QCOMPARE(find(QStringLiteral("needle")), QStringLiteral("1/1"));
    QVERIFY(finished(m_display->loadContent(QStringLiteral("needle needle needle"))));
    ENGINE_TRY_COMPARE(m_result, QStringLiteral("1/3"));
    m_display->endFind();
    m_result.clear();
    QVERIFY(finished(m_display->loadContent(QStringLiteral("needle"))));
    QVERIFY(m_engine->painted());
    QCOMPARE(m_result, QString());
}

void TestPageFind::entryOfAHitIsShown()
{
    const QString filler = QStringLiteral("\n\nA line of text.").repeated(60);
    CaptureSession session = CaptureSession::create(noon);
    for (int i = 0; i < 5; ++i)
        session.addTurn(QStringLiteral("Where is the needle?"), QStringLiteral("Here.") + filler,
                        noon.addSecs(60 * i), noon);
    session.addTurn(QStringLiteral("And then?"),
                    QStringLiteral("[Nothing](https://a.example/needle)"), noon.addSecs(400), noon);
    session.addNote(QStringLiteral("A needle"), noon.addSecs(500));
    const auto show = [&](const QUuid &entry) {
        m_result.clear();
        listen();
        const auto page = m_display->renderThread(session);
        m_display->findInNextPage(QStringLiteral("needle"), entry);
        return finished(page) && runUntil([this] { return !m_result.isEmpty(); });
    };
    const auto top = [&](const CaptureSession::Turn &turn) {
        return m_engine
            ->value(QStringLiteral("document.getElementById('resp-%1').closest('.entry')"
                                   ".getBoundingClientRect().top")
                        .arg(uuidText(turn.id)))
            .toDouble();
    };
    QVERIFY(show(session.turns.at(2).id));
    QCOMPARE(m_result, QStringLiteral("3/6"));
    QVERIFY(top(session.turns.at(2)) > -10 && top(session.turns.at(2)) < 300);
    QVERIFY(show(session.notes.first().id));
    QCOMPARE(m_result, QStringLiteral("6/6"));
    // In the source of an answer, but not in what the page shows of it.
    QVERIFY(show(session.turns.at(5).id));
    QCOMPARE(m_result, QStringLiteral("6/6"));
    QVERIFY(top(session.turns.at(5)) > -10);
    // The thread has changed since it was searched.
    QVERIFY(show(QUuid::createUuid()));
    QCOMPARE(m_result, QStringLiteral("6/6"));
    // The next page is searched where it stands.
    m_result.clear();
    QVERIFY(finished(m_display->renderThread(session)));
    QVERIFY(runUntil([this] { return !m_result.isEmpty(); }));
    QCOMPARE(m_result, QStringLiteral("6/6"));
}

void TestPageFind::pageScriptsCannotReachIt()
{
    QVERIFY(show(QStringLiteral("one needle")));
    QCOMPARE(m_engine->text(QStringLiteral("typeof finding")), QStringLiteral("undefined"));
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.finding")), QStringLiteral("undefined"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageFind>)

#include "test_page_find.moc"
