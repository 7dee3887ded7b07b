#include "corpora/Corpora.h"
#include "page/EngineWindow.h"
#include "page/ResponsePage.h"
#include "page/StreamedSlot.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTcpServer>

using namespace quellora;

namespace {

/// Pieces of Markdown and of HTML that tries to act. HTTP stands for the canary's address, RUN for
/// a script.
const QStringList &ownPieces()
{
    static const QStringList pieces = [] {
        const char *markdown[]{
            "\n",
            "\n\n",
            " ",
            "word ",
            "\\",
            "&",
            "&lt;",
            "&#x6A;",
            "&colon;",
            "- ",
            "1. ",
            "    ",
            "\t",
            "```\n",
            "```html\n",
            "~~~\n",
            "# ",
            "> ",
            "|a|b|\n",
            "|-|-|\n",
            "---\n",
            "===\n",
            "**",
            "_",
            "`",
            "~~",
            "[",
            "](",
            ")",
            "![",
            "][r]",
            "[r]: ",
            "[^1]",
            "[^1]: ",
            "- [ ] ",
            "$",
            "$$\n",
            "\\(",
            "\\]",
            "\\href{RUN}{x}",
            "\\includegraphics{HTTP}",
            "\\htmlClass{thumb}{x}",
            "<",
            ">",
            "\"",
            "'",
            "/>",
            "</",
            "<!--",
            "-->",
            "<![CDATA[",
            "]]>",
            "<!DOCTYPE ",
            "<?",
            // NOLINTNEXTLINE(misc-misleading-bidirectional): escaped
            "\u202e",
            "\u2028",
            "\ufeff",
            "\u0000",
        };
        const char *markup[]{
            "<script>RUN</script>",
            "<img src=x onerror=RUN>",
            "<img src=HTTP/i srcset='HTTP/j 2x'>",
            "<svg onload=RUN><style><a id='</style><img src=1 onerror=RUN>'>",
            "<svg><foreignObject><iframe srcdoc='<script>RUN</script>'>",
            "<svg><animate onbegin=RUN attributeName=x><use href='data:image/svg+xml,x#y'/>",
            "<math><mtext><table><mglyph><style><img src=x onerror=RUN></style>",
            "<math><annotation-xml encoding='text/html'><img src=x onerror=RUN>",
            "<form><math><mtext></form><form><mglyph><style></math><img src onerror=RUN>",
            "<noscript><p title='</noscript><img src=x onerror=RUN>'>",
            "<template><img src=x onerror=RUN></template>",
            "<select><template><img src=x onerror=RUN>",
            "<textarea></textarea><img src=x onerror=RUN>",
            "<title><a href='</title><img src=x onerror=RUN>'></a>",
            "<xmp><p title='</xmp><img src=x onerror=RUN>'>",
            "<iframe src=HTTP/f srcdoc='<script>RUN</script>'></iframe>",
            "<object data=HTTP/o><embed src=HTTP/e>",
            "<video src=HTTP/v onerror=RUN autoplay><source src=HTTP/w></video>",
            "<link rel=prefetch href=HTTP/p><link rel=stylesheet href=HTTP/c>",
            "<meta http-equiv=refresh content='0;url=HTTP/r'><base href=HTTP/>",
            "<style>@import 'HTTP/c'; *{background:url(HTTP/b)}</style>",
            "<div style='background:url(HTTP/b);position:fixed;inset:0'>",
            "<a href='javascript:RUN'>",
            "<a href=' jav&#x09;ascript:RUN'>",
            "<a href='data:text/html,<script>RUN</script>' ping=HTTP/p>",
            "<a href='vbscript:RUN' target=_blank>",
            "<form action=HTTP/s><button formaction='javascript:RUN' autofocus onfocus=RUN>",
            "<input type=image src=HTTP/i><input type=checkbox onclick=RUN>",
            "<details open ontoggle=RUN><summary>s</summary>",
            "<body onload=RUN onpageshow=RUN><html onclick=RUN>",
            "<table background=HTTP/b><td><form>",
            "<a id=slot name=body><img name=document><form id=streaming-response>",
            "<div class='note-delete thumb katex' data-id=1 is=x contenteditable popover>",
            "<p slot=x accesskey=a tabindex=1 onmouseover=RUN onwheel=RUN onpointerenter=RUN>",
            "<code class='language-math-truncatable'>x</code>",
            "[a](javascript:RUN) ",
            "![i](HTTP/i.png) ",
            "<javascript:RUN>",
            "[r]: data:text/html,RUN\n",
        };
        QStringList list;
        for (const char *piece : markdown)
            list << QString::fromUtf8(piece);
        list << QString(QChar(0)) << QString(QChar(0xd83d)) << QString(QChar(0xdc00));
        for (const char *piece : markup)
            list << QString::fromUtf8(piece);
        return list;
    }();
    return pieces;
}

/// What an answer may put into the page, independent of the sanitizer's own rules. Elements outside
/// of HTML come only from the typesetter of formulas, which nothing in an answer can pass itself
/// off as.
const QString oracle = QStringLiteral(R"(
    window.permitted = new Set(['A', 'ABBR', 'ACRONYM', 'ADDRESS', 'ARTICLE', 'ASIDE', 'B', 'BDI', 'BDO',
        'BIG', 'BLINK', 'BLOCKQUOTE', 'BR', 'CANVAS', 'CAPTION', 'CENTER', 'CITE', 'CODE', 'COL', 'COLGROUP',
        'CONTENT', 'DATA', 'DD', 'DECORATOR', 'DEL', 'DETAILS', 'DFN', 'DIR', 'DIV', 'DL', 'DT', 'ELEMENT',
        'EM', 'FIGCAPTION', 'FIGURE', 'FONT', 'FOOTER', 'H1', 'H2', 'H3', 'H4', 'H5', 'H6', 'HEADER',
        'HGROUP', 'HR', 'I', 'IMG', 'INPUT', 'INS', 'KBD', 'LI', 'MAIN', 'MARK', 'MENU', 'MENUITEM',
        'METER', 'NAV', 'NOBR', 'OL', 'P', 'PRE', 'PROGRESS', 'Q', 'RP', 'RT', 'RUBY', 'S', 'SAMP',
        'SEARCH', 'SECTION', 'SHADOW', 'SMALL', 'SPACER', 'SPAN', 'STRIKE', 'STRONG', 'SUB', 'SUMMARY',
        'SUP', 'TABLE', 'TBODY', 'TD', 'TFOOT', 'TH', 'THEAD', 'TIME', 'TR', 'TT', 'U', 'UL', 'VAR', 'WBR']);
    window.refused = new Set(['id', 'name', 'srcset', 'srcdoc', 'formaction', 'action', 'ping', 'background',
        'contenteditable', 'accesskey', 'popover', 'is', 'autofocus', 'usemap', 'http-equiv']);
    window.violation = root => {
        for (const element of root.querySelectorAll('*')) {
            if (element.parentNode.closest?.('.formula'))
                continue;
            if (element.namespaceURI !== 'http://www.w3.org/1999/xhtml' || !permitted.has(element.nodeName))
                return 'element ' + element.outerHTML.slice(0, 200);
            for (const { name, value } of element.attributes) {
                const scheme = /^[\s\0-\x20]*([a-z][a-z0-9+.-]*):/i.exec(value.replace(/[\t\n\r]/g, ''));
                const isAddress = ['href', 'src', 'cite', 'longdesc', 'data', 'poster'].includes(name);
                if (/^on/.test(name) || refused.has(name) ||
                    name === 'class' && !/^(?:language-\S+|group|formula (?:inline|display))$/.test(value) ||
                    name === 'style' && value !== 'list-style: none;' ||
                    isAddress && scheme && !['http', 'https', 'mailto'].includes(scheme[1].toLowerCase()))
                    return 'attribute ' + name + '=' + value;
            }
            if (element.nodeName === 'INPUT' && (element.type !== 'checkbox' || !element.disabled))
                return 'input ' + element.outerHTML;
        }
        return window.pwned === undefined ? '' : 'a script ran';
    };
    /// What is wrong with this answer, streamed in pieces; empty if nothing.
    window.tried = function* (text, seed) {
        return (yield* differences(text, 12, seed)) || violation(slot) || violation(whole);
    };
)");

} // namespace

/// Answers made up of Markdown and hostile HTML in the real engine: whatever they are, the page
/// holds only what may show something, runs and requests nothing, and an answer that arrives in
/// pieces looks like one that arrives at once.
///
/// A fixed number of answers from a fixed seed. scripts/fuzz sets QUELLORA_PAGE_FUZZ_SECONDS to run
/// for a time from another seed, and QUELLORA_PAGE_FUZZ_FIGURES to get the figures as a file.
class TestPageFuzz : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void oracleNotices_data();
    void oracleNotices();
    void earlierFindings();
    void madeUpAnswers();

private:
    QString problemOf(const QString &text, quint32 seed)
    {
        return comparisonResult(
            m_engine,
            QStringLiteral("tried(\"%1\", %2)").arg(responsepage::escapedForJson(text)).arg(seed));
    }
    QString madeUp(QRandomGenerator &random) const;

    EngineWindow m_engine;
    QTcpServer m_canary;
    QStringList m_pieces;
};

void TestPageFuzz::initTestCase()
{
    QVERIFY(m_canary.listen(QHostAddress::LocalHost));
    const QString address = QStringLiteral("http://127.0.0.1:%1").arg(m_canary.serverPort());
    m_pieces = ownPieces();
    m_pieces.replaceInStrings(QStringLiteral("HTTP"), address);
    m_pieces.replaceInStrings(QStringLiteral("RUN"), QStringLiteral("window.pwned=1"));
    m_pieces += corpora::naughtyStrings();
    QVERIFY(m_engine.load({responsepage::streamingShellPage(
        std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(), std::nullopt, {}, {})}));
    m_engine.value(streamedSlotHelpers);
    m_engine.value(oracle);
}

void TestPageFuzz::oracleNotices_data()
{
    QTest::addColumn<QString>("html");
    const char *documents[]{
        "<script></script>",    "<p onclick=x>",      "<a href='java\tscript:x'>",
        "<svg></svg>",          "<p id=slot>",        "<p style='color:red'>",
        "<input type=text>",    "<img src='data:x'>", "<iframe></iframe>",
        "<img src=x srcset=y>", "<math></math>",      "<a href='quellora-page:1'>",
    };
    for (const char *html : documents)
        QTest::newRow(html) << QString::fromUtf8(html);
}

void TestPageFuzz::oracleNotices()
{
    QFETCH(QString, html);
    QVERIFY(!m_engine
                 .text(QStringLiteral("{ const node = document.implementation"
                                      ".createHTMLDocument('').body; node.innerHTML = \"%1\"; "
                                      "violation(node) }")
                           .arg(responsepage::escapedForJson(html)))
                 .isEmpty());
}

void TestPageFuzz::earlierFindings()
{
    const QFileInfoList files =
        QDir(QStringLiteral(QUELLORA_FUZZ_CORPUS)).entryInfoList(QDir::Files);
    QVERIFY(!files.isEmpty());
    for (const QFileInfo &info : files) {
        QFile file(info.filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(problemOf(QString::fromUtf8(file.readAll()), 1), QString());
    }
}

QString TestPageFuzz::madeUp(QRandomGenerator &random) const
{
    QString text;
    const auto ownCount = ownPieces().size();
    for (int i = 1 + random.bounded(40); i > 0; --i) {
        // Others' strings are many; one piece in five is one of them.
        const qsizetype index = random.bounded(5) == 0 ? random.bounded(int(m_pieces.size()))
                                                       : random.bounded(int(ownCount));
        const QString &piece = m_pieces.at(index);
        const bool isCut = random.bounded(6) == 0;
        text += isCut ? piece.left(random.bounded(int(piece.size()) + 1)) : piece;
        if (random.bounded(40) == 0)
            text += piece.repeated(random.bounded(30));
    }
    return text;
}

void TestPageFuzz::madeUpAnswers()
{
    constexpr quint32 fixedSeed = 20261122;
    constexpr int fixedCount = 150;
    const int seconds = qEnvironmentVariableIntValue("QUELLORA_PAGE_FUZZ_SECONDS");
    const quint32 seed = seconds > 0 ? QRandomGenerator::global()->generate() : fixedSeed;
    QRandomGenerator random(seed);
    QElapsedTimer clock;
    clock.start();
    qint64 count = 0;
    qint64 characters = 0;
    while (seconds > 0 ? clock.elapsed() < seconds * 1000 : count < fixedCount) {
        const QString text = madeUp(random);
        const QString problem = problemOf(text, 1 + random.bounded(1U << 30U));
        QVERIFY2(problem.isEmpty(), qUtf8Printable(QStringLiteral("%1\nseed %2, answer %3:\n%4")
                                                       .arg(problem)
                                                       .arg(seed)
                                                       .arg(count)
                                                       .arg(responsepage::escapedForJson(text))));
        ++count;
        characters += text.size();
    }
    QVERIFY(!m_canary.hasPendingConnections());
    // The page still works.
    QCOMPARE(problemOf(QStringLiteral("# fine\n\n*still*"), 1), QString());
    QCOMPARE(m_engine.text(QStringLiteral("slot.textContent.trim()")),
             QStringLiteral("fine\nstill"));
    if (const QString path = qEnvironmentVariable("QUELLORA_PAGE_FUZZ_FIGURES"); !path.isEmpty()) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(QJsonObject{{QStringLiteral("executions"), count},
                                             {QStringLiteral("characters"), characters},
                                             {QStringLiteral("seconds"), clock.elapsed() / 1000}})
                       .toJson());
    }
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageFuzz>)
#include "test_page_fuzz.moc"
