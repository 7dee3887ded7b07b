#include "page/PageAddresses.h"
#include "page/PageStyle.h"
#include "page/ResponsePage.h"

#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

#include <array>

using namespace quellora;
using namespace quellora::responsepage;

namespace {

const QDateTime noon(QDate(2026, 11, 21), QTime(12, 0));

PageAppearance light(double alpha)
{
    return {AppTheme::Light, alpha, std::nullopt, QStringLiteral("⌃⌥⌘C")};
}

QString addressOf(const CaptureSession::Screenshot &screenshot)
{
    return QStringLiteral("quellora-page:&/%1").arg(screenshot.index);
}

CaptureSession::Turn turn(const char *prompt, const char *response, const QDateTime &at)
{
    return {QUuid::createUuid(), QString::fromUtf8(prompt), QString::fromUtf8(response), at};
}

QByteArray joined(std::initializer_list<QByteArrayView> pieces)
{
    QByteArray all;
    for (const QByteArrayView piece : pieces)
        all += piece;
    return all;
}

constexpr QByteArrayView end =
    "<script src=\"quellora-asset://page/page.js\"></script></body></html>";

/// Start of a page up to its resources, with the policy for the rules in @p css.
QByteArray head(QByteArrayView css)
{
    const QByteArray hash = QCryptographicHash::hash(css, QCryptographicHash::Sha256).toBase64();
    return joined(
        {"<!DOCTYPE html><html><head><meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src ",
         pageaddress::highlightScript, " ", pageaddress::markedScript,
         " quellora-asset://page; style-src 'sha256-", hash, "' ", pageaddress::darkCodeStyle, " ",
         pageaddress::lightCodeStyle,
         " quellora-asset://page; style-src-attr 'unsafe-hashes' "
         "'sha256-",
         QCryptographicHash::hash("display:flex; gap:6px; padding:4px 0;",
                                  QCryptographicHash::Sha256)
             .toBase64(),
         "'; "
         "img-src quellora-page:; base-uri 'none'; form-action 'none'\">\n"});
}

QByteArray resources(QByteArrayView codeStyle)
{
    return joined({"<link id=\"hljs-theme\" rel=\"stylesheet\" href=\"", codeStyle,
                   "\"><script src=\"", pageaddress::highlightScript, "\"></script><script src=\"",
                   pageaddress::markedScript, "\"></script>\n"});
}

// Every value and every rule repeated, as a page must contain them.

struct PaletteEntry
{
    const char *variable;
    const char *dark;
    const char *light;
};

constexpr std::array palette{
    PaletteEntry{"--bg", "#1c1e24", "#f7f5f0"},
    PaletteEntry{"--bg-raised", "#242730", "#eeece5"},
    PaletteEntry{"--bg-input", "#2b2e38", "#e8e5dd"},
    PaletteEntry{"--bg-input-rgb", "43,46,56", "232,229,221"},
    PaletteEntry{"--border", "#353946", "#d5d1c5"},
    PaletteEntry{"--border-strong", "#454a5a", "#c4bfb0"},
    PaletteEntry{"--text", "#e8e8ea", "#1c1e24"},
    PaletteEntry{"--text-dim", "#8b8e99", "#5c5f6b"},
    PaletteEntry{"--text-faint", "#5c5f6b", "#8b8e99"},
    PaletteEntry{"--accent", "#2f80ed", "#1c6ad0"},
    PaletteEntry{"--accent-soft", "rgba(47,128,237,0.14)", "rgba(28,106,208,0.10)"},
    PaletteEntry{"--note", "#e6c760", "#a17916"},
    PaletteEntry{"--note-soft", "rgba(230,199,96,0.12)", "rgba(161,121,22,0.10)"},
    PaletteEntry{"--danger", "#e53935", "#e53935"},
    PaletteEntry{"--pill-rgb", "20,22,28", "245,245,247"},
};

constexpr const char *baseRules = R"(*{box-sizing:border-box;margin:0;padding:0}
html,body{height:100%;overflow-y:auto}
body::-webkit-scrollbar{display:none}
body{background:transparent;color:var(--text);font-family:-apple-system,'SF Pro Text',sans-serif;font-size:13px;line-height:1.65;padding:14px 16px 20px}
h1,h2,h3{color:var(--accent);margin:10px 0 5px;font-size:14px;font-weight:600}
p{margin:5px 0}
ul,ol{padding-left:18px;margin:5px 0}
li{margin:3px 0}
p,li,h1,h2,h3{background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;padding:1px 6px;margin-left:-6px;margin-right:-6px;width:fit-content}
code{font-family:'SF Mono',Menlo,monospace;font-size:12px;background:rgba(var(--bg-input-rgb),var(--code-alpha));padding:1px 5px;border-radius:3px;color:var(--accent)}
pre{background:rgba(var(--bg-input-rgb),var(--code-alpha)) !important;border-radius:7px;padding:10px 13px;margin:8px 0;overflow-x:auto}
pre code{background:transparent !important;padding:0;color:inherit;font-size:12px}
strong{color:var(--note)}
em{color:var(--text-dim)}
blockquote{border-left:3px solid var(--accent);padding-left:10px;color:var(--text-dim);margin:6px 0;background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:0 4px 4px 0;padding-top:4px;padding-right:8px;padding-bottom:4px}
)";

constexpr const char *threadRules = R"(.entry{padding:10px 0}
.divider{height:1px;background:var(--border);margin:4px 0}
.entry-timestamp{font-size:10px;font-weight:600;letter-spacing:0.04em;text-transform:uppercase;color:var(--text-dim);margin-bottom:6px}
.versions{margin-left:8px;text-transform:none;letter-spacing:0;white-space:nowrap}
.version{background:transparent;border:none;color:var(--text-dim);font:inherit;font-size:13px;line-height:1;cursor:pointer;padding:2px 7px;border-radius:4px}
.version:hover{color:var(--text)}
.version:disabled{opacity:0.35;cursor:default;color:var(--text-dim)}
.note-entry{position:relative;border-left:3px solid var(--note);padding-left:12px;color:var(--text);background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:0 4px 4px 0;padding-top:4px;padding-right:8px;padding-bottom:4px}
.note-body{display:flex;align-items:flex-start;gap:8px}
.note-text{white-space:pre-wrap;font-size:13px}
.note-delete{position:absolute;top:8px;right:0;background:transparent;border:none;color:var(--text-faint);font-size:13px;cursor:pointer;padding:2px 6px}
.note-delete:hover{color:var(--text)}
.turn-prompt{display:flex;align-items:flex-start;gap:10px;padding:10px 12px;background:rgba(var(--pill-rgb),var(--pill-alpha));border:1px solid var(--border);border-radius:8px}
.thumb{width:48px;height:36px;object-fit:cover;border-radius:4px;flex-shrink:0;cursor:pointer}
.prompt-text{color:var(--text);font-size:12.5px;line-height:1.55;white-space:pre-wrap}
.turn-response{padding:8px 4px 2px}
.truncatable{display:-webkit-box;-webkit-line-clamp:3;-webkit-box-orient:vertical;overflow:hidden;cursor:pointer}
.truncatable.expanded{display:block;-webkit-line-clamp:unset}
.dot{width:8px;height:8px;background:var(--text-dim);border-radius:50%;animation:bounce 1.2s infinite ease-in-out}
.dot:nth-child(2){animation-delay:0.2s}
.dot:nth-child(3){animation-delay:0.4s}
@keyframes bounce{0%,80%,100%{transform:translateY(0);opacity:0.4}40%{transform:translateY(-8px);opacity:1}}
)";

constexpr const char *singleAnswerRules =
    R"(#ph{color:var(--text-faint);font-size:12px;text-align:center;margin-top:24px;background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;padding:4px 8px}
#ph kbd{display:inline-block;padding:2px 6px;margin:0 2px;background:var(--bg-raised);border:1px solid var(--border-strong);border-radius:4px;font-size:11px;font-family:'IBM Plex Mono',monospace;color:var(--text);vertical-align:baseline}
#ld{display:none;color:var(--accent);font-size:13px;text-align:center;margin-top:28px;animation:pulse 1.1s ease-in-out infinite}
@keyframes pulse{0%,100%{opacity:1}50%{opacity:0.35}}
)";

constexpr const char *screenshotOnlyRules =
    R"(.thumb-empty{width:64px;height:48px;object-fit:cover;border-radius:4px;margin:0 6px 6px 0;cursor:pointer}
#empty-note{color:var(--text-faint);font-size:12px;margin-top:8px;background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;padding:4px 8px;width:fit-content}
)";

constexpr const char *detailRules =
    R"(a{color:#7db2ff}body.light a{color:#1257ae}
hr{height:1px;border:none;background:var(--border);margin:10px 0}
a:focus-visible,.thumb:focus-visible,.note-delete:focus-visible,.version:focus-visible,.truncatable:focus-visible{outline:2px solid #7db2ff;outline-offset:2px}
body.light :focus-visible{outline-color:#1c6ad0}
)";

} // namespace

class TestPageText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void escapesForJson_data();
    void escapesForJson();
    void jsonMayBePutTogetherFromHalves();
    void escapesForHtml();
    void writesNumbers();
    void derivesAlphas();
    void formatsTimestamps();
    void scripts();
    void singleAnswer();
    void singleAnswerWithTextColor();
    void screenshotOnly();
    void noteEntry();
    void turnEntry();
    void turnWithVersions();
    void shellInPlaceOfATurn();
    void thread();
    void shellWithoutThread();
    void shellAfterEntries();
    void screenshotBelongsToTheTurnThatFollows();
    void recordedScreenshotOfATurnIsShown();
    void palettesHaveEveryValue();
    void styleSheetsHaveEveryRule_data();
    void styleSheetsHaveEveryRule();
};

void TestPageText::escapesForJson_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("escaped");
    const auto row = [](const char *tag, const QString &text, const char *escaped) {
        QTest::newRow(tag) << text << QString::fromUtf8(escaped);
    };
    row("plain", QStringLiteral("it's `a` ä \U0001F30D"), "it's `a` ä 🌍");
    row("quotes", QStringLiteral("\"\\\""), R"(\"\\\")");
    row("substitution", QStringLiteral("${HOME} ${"), "${HOME} ${");
    row("script end", QStringLiteral("</script><!--"), R"(\u003c/script>\u003c!--)");
    row("lines", QStringLiteral("a\nb\r\tc\u2028d\u2029"), R"(a\nb\u000d\u0009c\u2028d\u2029)");
    row("null", QString(QChar(0)) + QChar(0x1f), R"(\u0000\u001f)");
}

void TestPageText::escapesForJson()
{
    QFETCH(QString, text);
    QTEST(escapedForJson(text), "escaped");
    const QByteArray json = "[\"" + escapedForJson(text).toUtf8() + "\"]";
    QCOMPARE(QJsonDocument::fromJson(json).array().at(0).toString(), text);
}

void TestPageText::jsonMayBePutTogetherFromHalves()
{
    const QString text = QStringLiteral("a\U0001F30Db");
    QString pieces;
    for (const QChar c : text)
        pieces += escapedForJson(QString(c));
    QCOMPARE(pieces, QStringLiteral("a\\ud83c\\udf0db"));
    QCOMPARE(QJsonDocument::fromJson("[\"" + pieces.toUtf8() + "\"]").array().at(0).toString(),
             text);
}

void TestPageText::escapesForHtml()
{
    QCOMPARE(escapedForHtml(QStringLiteral("<b> & \"q\" 's' &lt;")),
             QStringLiteral("&lt;b&gt; &amp; &quot;q&quot; &#39;s&#39; &amp;lt;"));
}

void TestPageText::writesNumbers()
{
    QCOMPARE(shortestDecimal(0), QStringLiteral("0"));
    QCOMPARE(shortestDecimal(0.15), QStringLiteral("0.15"));
    QCOMPARE(shortestDecimal(1e-7), QStringLiteral("0.0000001"));
    QCOMPARE(shortestDecimal((1 - 0.88) * 0.72).toDouble(), (1 - 0.88) * 0.72);
    QCOMPARE(defaultDecimal(-60), QStringLiteral("-60.0"));
    QCOMPARE(defaultDecimal(0.5), QStringLiteral("0.5"));
    QCOMPARE(defaultDecimal(12.25), QStringLiteral("12.25"));
}

void TestPageText::derivesAlphas()
{
    QCOMPARE(pillAlpha(1), 0.0);
    QCOMPARE(codeAlpha(1), 0.15);
    QCOMPARE(pillAlpha(0), 0.72);
    QCOMPARE(codeAlpha(0), 0.72);
    QCOMPARE(pillAlpha(0.88), (1 - 0.88) * 0.72);
    QCOMPARE(codeAlpha(0.88), 0.15);
    QCOMPARE(pillAlpha(2), 0.0);
    QCOMPARE(pillAlpha(-1), 0.72);
}

void TestPageText::formatsTimestamps()
{
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 1, 5), QTime(9, 5))),
             QStringLiteral("Jan 5, 9:05 AM"));
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 11, 21), QTime(0, 30))),
             QStringLiteral("Nov 21, 12:30 AM"));
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 11, 21), QTime(15, 0)).toUTC()),
             QStringLiteral("Nov 21, 3:00 PM"));
}

void TestPageText::scripts()
{
    QCOMPARE(hideLoadingScript(),
             QStringLiteral("document.getElementById('loading').style.display='none';"));
    QCOMPARE(streamAppendScript(QStringLiteral("it's `x` \\\"\n</script>\u2028")),
             QStringLiteral("answers.append(\"it's `x` \\\\\\\"\\n\\u003c/script>\\u2028\");"));
    QCOMPARE(streamFinishScript(), QStringLiteral("answers.finish();"));
    CaptureSession::Turn answered = turn("", "", noon);
    answered.id = QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd"));
    QCOMPARE(streamedTurnScript(answered),
             QStringLiteral("(function(slot){slot.id=\"resp-0A1B2C3D-0000-4000-8000-00000000ABCD\";"
                            "slot.parentNode.querySelector('.entry-timestamp').innerHTML="
                            "\"Nov 21, 12:00 PM\";})"
                            "(document.getElementById('streaming-response'));"));
    QCOMPARE(scrollByScript(-60), QStringLiteral("document.body.scrollBy(0, -60.0);"));
    QCOMPARE(scrollByScript(10.5), QStringLiteral("document.body.scrollBy(0, 10.5);"));
    QCOMPARE(scrollToFractionScript(1),
             QStringLiteral("(function(){var extent=Math.max(1, document.body.scrollHeight-"
                            "document.body.clientHeight); document.body.scrollTop = extent * 1.0;"
                            "})();"));
    PageAppearance hint;
    hint.captureHotkey = QStringLiteral("Ctrl+\"'\\");
    hint.answererName = QStringLiteral("R&D \"reader\"");
    QCOMPARE(hintScript(hint),
             QStringLiteral("(function(texts){var key=document.querySelector('#ph kbd');"
                            "if(key){key.textContent=texts[0];key.nextSibling.textContent=texts[1];"
                            "document.getElementById('ld').textContent=texts[2];}})("
                            "[\"Ctrl+\\\"'\\\\\","
                            "\" to capture screen \u2192 R&D \\\"reader\\\" responds here\","
                            "\"\u23f3 R&D \\\"reader\\\" is thinking...\"]);"));
    QCOMPARE(pillAlphaScript(1),
             QStringLiteral("document.documentElement.style.setProperty('--pill-alpha', '0');"
                            "document.documentElement.style.setProperty('--code-alpha', '0.15');"));
    PageAppearance appearance = light(1);
    QCOMPARE(themeScript(appearance),
             QStringLiteral("document.documentElement.style.removeProperty('--text');"
                            "document.body.className = 'light';(function(){var link=document."
                            "getElementById('hljs-theme');if(link){link.href='%1';}})();")
                 .arg(QString::fromLatin1(pageaddress::lightCodeStyle)));
    appearance.theme = AppTheme::Dark;
    appearance.textColorHex = QStringLiteral("#8899aa");
    QCOMPARE(themeScript(appearance),
             QStringLiteral("document.documentElement.style.setProperty('--text', '#8899aa');"
                            "document.body.className = '';(function(){var link=document."
                            "getElementById('hljs-theme');if(link){link.href='%1';}})();")
                 .arg(QString::fromLatin1(pageaddress::darkCodeStyle)));
}

void TestPageText::singleAnswer()
{
    const QByteArray css =
        joined({pagestyle::base, "\n\n:root{--pill-alpha:0.36;--code-alpha:0.36}\n",
                pagestyle::singleAnswer, pagestyle::details, pagestyle::blocks});
    const QByteArray expected = joined(
        {head(css), resources(pageaddress::lightCodeStyle), "<style>", css,
         "</style></head><body class=\"light\"><div id=\"ct\"></div>\n<div id=\"ph\">Hit <kbd>"
         "\u2303\u2325\u2318C</kbd> to capture screen \u2192 Claude responds here</div>\n"
         "<div id=\"ld\">\u23f3 Claude is thinking...</div>\n"
         "<script type=\"application/json\" id=\"page-data\">"
         "{\"raw\":\"a`\\u003c/script>${x\"}</script>\n",
         end});
    QCOMPARE(singleAnswerPage(QStringLiteral("a`</script>${x"), light(0.5)), expected);
}

void TestPageText::singleAnswerWithTextColor()
{
    PageAppearance appearance = light(1);
    appearance.theme = AppTheme::Dark;
    appearance.textColorHex = QStringLiteral("#8899aa");
    appearance.captureHotkey = QStringLiteral("<&");
    const QByteArray page = singleAnswerPage(QString(), appearance);
    QVERIFY(page.contains(joined({pagestyle::base, "\n:root{--text:#8899aa}\n"
                                                   ":root{--pill-alpha:0;--code-alpha:0.15}\n"})));
    QVERIFY(page.contains("<body class=\"\">"));
    QVERIFY(page.contains("<kbd>&lt;&amp;</kbd>"));
    QVERIFY(page.contains(resources(pageaddress::darkCodeStyle)));
}

void TestPageText::screenshotOnly()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("AB", noon, noon);
    session.addScreenshot("CD", noon, noon);
    const QByteArray css =
        joined({pagestyle::base, "\n\n:root{--pill-alpha:0;--code-alpha:0.15}\n",
                pagestyle::screenshotOnly, pagestyle::details, pagestyle::blocks});
    const QByteArray expected = joined(
        {head(css), "<style>", css,
         "</style></head><body class=\"light\"><div id=\"ct\">"
         "<img class=\"thumb thumb-empty\" src=\"quellora-page:&amp;/0\" "
         "alt=\"Screenshot 1\" role=\"button\" tabindex=\"0\" data-picture=\"0\">"
         "<img class=\"thumb thumb-empty\" src=\"quellora-page:&amp;/1\" "
         "alt=\"Screenshot 2\" role=\"button\" tabindex=\"0\" data-picture=\"1\">"
         "</div>\n<div id=\"empty-note\">Screenshot only \u2014 no notes or AI turns yet.</div>\n"
         "</body></html>"});
    QCOMPARE(screenshotOnlyPage(session, light(1), addressOf), expected);
}

void TestPageText::noteEntry()
{
    const CaptureSession::Note note{QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd")),
                                    QStringLiteral("use <b>"), noon};
    QCOMPARE(entryBodyHTML(note, {}, addressOf),
             QByteArray("<div class=\"entry note-entry\"><div class=\"entry-timestamp\">"
                        "Nov 21, 12:00 PM</div><button class=\"note-delete\" aria-label=\"Delete "
                        "note\" data-note=\"0A1B2C3D-0000-4000-8000-00000000ABCD\">\u00d7</button>"
                        "<div class=\"note-body\"><div class=\"note-text truncatable\">"
                        "use &lt;b&gt;</div></div></div>"));
}

void TestPageText::turnEntry()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("AB", noon, noon);
    CaptureSession::Turn item = turn("a & b", "answer", noon.addSecs(5));
    item.id = QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd"));
    session.turns.append(item);
    QCOMPARE(entryBodyHTML(item, session, addressOf),
             QByteArray("<div class=\"entry turn-entry\"><div class=\"entry-timestamp\">"
                        "Nov 21, 12:00 PM</div><div class=\"turn-prompt\"><img class=\"thumb\" "
                        "data-src=\"quellora-page:&amp;/0\" alt=\"Screenshot 1\" "
                        "role=\"button\" tabindex=\"0\" data-picture=\"0\">"
                        "<div class=\"prompt-text truncatable\">a &amp; b</div></div>"
                        "<div class=\"turn-response\" id=\"resp-0A1B2C3D-0000-4000-8000-"
                        "00000000ABCD\"></div></div>"));
}

void TestPageText::turnWithVersions()
{
    CaptureSession session = CaptureSession::create(noon);
    CaptureSession::Turn item = turn("p", "one", noon);
    item.id = QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd"));
    session.turns.append(item);
    const auto button = [](const char *name, int position, const char *text, bool isThere) {
        return QStringLiteral("<button class=\"version\" aria-label=\"%1\" data-turn=\"0A1B2C3D-"
                              "0000-4000-8000-00000000ABCD\" data-version=\"%2\"%3>%4</button>")
            .arg(QString::fromUtf8(name), QString::number(position),
                 isThere ? QString() : QStringLiteral(" disabled"), QString::fromUtf8(text));
    };
    QVERIFY(session.addVersion(item.id, {"p", "two", noon.addSecs(60)}, true, noon));
    QVERIFY(session.addVersion(item.id, {"p", "three", noon.addSecs(120)}, true, noon));
    const QStringList times{QStringLiteral("12:00 PM"), QStringLiteral("12:01 PM"),
                            QStringLiteral("12:02 PM")};
    for (int shown = 2; shown >= 0; --shown) {
        session.showVersion(item.id, shown);
        const QString time =
            QStringLiteral("Nov 21, %1<span class=\"versions\">%2%3 of 3%4</span>")
                .arg(times[shown], button("Earlier version", shown - 1, "\u2039", shown > 0),
                     QString::number(shown + 1),
                     button("Later version", shown + 1, "\u203a", shown < 2));
        QVERIFY(QString::fromUtf8(entryBodyHTML(session.turns[0], session, addressOf))
                    .contains("<div class=\"entry-timestamp\">" + time + "</div>"));
        QVERIFY(streamedTurnScript(session.turns[0]).contains(escapedForJson(time)));
    }
}

/// The question takes the place of its turn, also above a later note.
void TestPageText::shellInPlaceOfATurn()
{
    CaptureSession session = CaptureSession::create(noon);
    session.turns = {turn("p1", "r1", noon), turn("p2", "r2", noon.addSecs(60))};
    session.notes = {{QUuid::createUuid(), QStringLiteral("later"), noon.addSecs(120)}};
    const QByteArray page =
        streamingShellPage(session, QStringLiteral("again"), noon.addSecs(180), std::nullopt,
                           light(1), addressOf, session.turns[1].id);
    QVERIFY(page.contains("r1") && !page.contains("p2") && !page.contains("r2"));
    QVERIFY(page.indexOf("p1") < page.indexOf("again"));
    QVERIFY(page.indexOf("again") < page.indexOf("later"));
    QCOMPARE(page.count("<div class=\"divider\">"), 2);
    QCOMPARE(
        streamingShellPage(session, QStringLiteral("q"), noon, std::nullopt, light(1), addressOf,
                           QUuid::createUuid()),
        streamingShellPage(session, QStringLiteral("q"), noon, std::nullopt, light(1), addressOf));
}

void TestPageText::thread()
{
    CaptureSession session = CaptureSession::create(noon);
    session.turns = {turn("p1", "r`1", noon), turn("p2", "</script>\\", noon.addSecs(60))};
    session.notes = {{QUuid::createUuid(), QStringLiteral("n"), noon}};
    const QByteArray first = uuidText(session.turns[0].id).toLatin1();
    const QByteArray second = uuidText(session.turns[1].id).toLatin1();
    // At equal times the note comes first.
    const QByteArray css =
        joined({pagestyle::base, pagestyle::thread, "\n\n:root{--pill-alpha:0;--code-alpha:0.15}\n",
                pagestyle::details, pagestyle::blocks});
    const QByteArray expected = joined(
        {head(css), resources(pageaddress::lightCodeStyle), "<style>", css,
         "</style></head><body class=\"light\"><div id=\"ct\">",
         entryBodyHTML(session.notes[0], session, addressOf), "<div class=\"divider\"></div>",
         entryBodyHTML(session.turns[0], session, addressOf), "<div class=\"divider\"></div>",
         entryBodyHTML(session.turns[1], session, addressOf),
         "</div>\n<script type=\"application/json\" id=\"page-data\">{\"responses\":{\"resp-",
         first, "\":\"r`1\",\"resp-", second, "\":\"\\u003c/script>\\\\\"}}</script>\n", end});
    QCOMPARE(threadPage(session, light(1), addressOf), expected);
}

void TestPageText::shellWithoutThread()
{
    const QByteArray page =
        streamingShellPage(std::nullopt, QStringLiteral("What's <this>?"), noon,
                           CaptureSession::Screenshot{3, "AB", noon}, light(1), addressOf);
    QVERIFY(page.contains(
        "<div id=\"ct\"><div class=\"entry turn-entry\"><div class=\"entry-timestamp\">Nov 21, "
        "12:00 PM</div><div class=\"turn-prompt\"><img class=\"thumb\" data-src=\"quellora-page:"
        "&amp;/3\" alt=\"Screenshot 4\" role=\"button\" tabindex=\"0\" "
        "data-picture=\"3\"><div class=\"prompt-text truncatable\">What&#39;s "
        "&lt;this&gt;?</div></div><div class=\"turn-response\" id=\"streaming-response\">"
        "<div id=\"loading\" style=\"display:flex; gap:6px; padding:4px 0;\"><div class=\"dot\">"
        "</div><div class=\"dot\"></div><div class=\"dot\"></div></div></div></div></div>\n"
        "<script type=\"application/json\" id=\"page-data\">{\"responses\":{}}</script>\n"));
    QVERIFY(page.endsWith(end));
}

void TestPageText::shellAfterEntries()
{
    CaptureSession session = CaptureSession::create(noon);
    session.turns = {turn("p1", "r1", noon)};
    const QByteArray page =
        streamingShellPage(session, QStringLiteral("p2"), noon, std::nullopt, light(1), addressOf);
    QVERIFY(page.contains(entryBodyHTML(session.turns[0], session, addressOf) +
                          "<div class=\"divider\"></div><div class=\"entry turn-entry\">"));
    QVERIFY(page.contains("{\"resp-" + uuidText(session.turns[0].id).toLatin1() + "\":\"r1\"}}"));
    QVERIFY(!page.contains("<img"));
}

void TestPageText::screenshotBelongsToTheTurnThatFollows()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("0", noon, noon);
    session.addScreenshot("1", noon.addSecs(1), noon);
    session.turns.append(turn("with", "", noon.addSecs(2)));
    session.turns.append(turn("without", "", noon.addSecs(3)));
    session.addScreenshot("2", noon.addSecs(4), noon);
    session.turns.append(turn("later", "", noon.addSecs(5)));
    session.addScreenshot("3", noon.addSecs(6), noon);
    QCOMPARE(screenshotOfTurn(session, session.turns[0].id)->index, 1);
    QVERIFY(!screenshotOfTurn(session, session.turns[1].id));
    QCOMPARE(screenshotOfTurn(session, session.turns[2].id)->index, 2);
    QVERIFY(!screenshotOfTurn(session, QUuid::createUuid()));
}

void TestPageText::recordedScreenshotOfATurnIsShown()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("0", noon, noon);
    session.addScreenshot("1", noon.addSecs(1), noon);
    session.turns.append(turn("with the first", "", noon.addSecs(2)));
    session.turns.append(turn("without", "", noon.addSecs(3)));
    session.addScreenshot("2", noon.addSecs(4), noon);
    session.turns.append(turn("with one that was removed", "", noon.addSecs(5)));
    session.turns[0].screenshot = CaptureSession::TurnScreenshot{0};
    session.turns[1].screenshot = CaptureSession::TurnScreenshot{};
    session.turns[2].screenshot = CaptureSession::TurnScreenshot{7};
    QCOMPARE(screenshotOfTurn(session, session.turns[0].id)->index, 0);
    QVERIFY(!screenshotOfTurn(session, session.turns[1].id));
    QVERIFY(!screenshotOfTurn(session, session.turns[2].id));
}

void TestPageText::palettesHaveEveryValue()
{
    QByteArray dark;
    QByteArray light;
    for (const PaletteEntry &entry : palette) {
        dark += QByteArray(dark.isEmpty() ? "" : ";") + entry.variable + ':' + entry.dark;
        light += QByteArray(light.isEmpty() ? "" : ";") + entry.variable + ':' + entry.light;
    }
    const QByteArrayList lines = pagestyle::base.toByteArray().split('\n');
    QCOMPARE(lines.value(0), ":root{" + dark + '}');
    QCOMPARE(lines.value(1), "body.light{" + light + '}');
}

void TestPageText::styleSheetsHaveEveryRule_data()
{
    QTest::addColumn<QByteArray>("sheet");
    QTest::addColumn<QByteArray>("rules");
    const auto row = [](const char *tag, const QByteArray &sheet, const char *rules) {
        QTest::newRow(tag) << sheet << QByteArray(rules);
    };
    // The palettes are the first two lines.
    const QByteArray base = pagestyle::base.toByteArray();
    row("base", base.mid(base.indexOf('\n', base.indexOf('\n') + 1) + 1), baseRules);
    row("thread", pagestyle::thread.toByteArray(), threadRules);
    row("single answer", pagestyle::singleAnswer.toByteArray(), singleAnswerRules);
    row("screenshot only", pagestyle::screenshotOnly.toByteArray(), screenshotOnlyRules);
    row("details", pagestyle::details.toByteArray(), detailRules);
}

void TestPageText::styleSheetsHaveEveryRule()
{
    QFETCH(QByteArray, sheet);
    QFETCH(QByteArray, rules);
    const QByteArrayList actual = sheet.split('\n');
    const QByteArrayList expected = rules.split('\n');
    for (qsizetype i = 0; i < expected.size(); ++i)
        QCOMPARE(actual.value(i), expected[i]);
    QCOMPARE(actual.size(), expected.size());
}

QUELLORA_TEST(QCoreApplication, TestPageText)
#include "test_page_text.moc"
