#include "query/StreamEventParser.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QObject>
#include <QRandomGenerator>
#include <QStringList>
#include <QTest>

using namespace quellora;

namespace {

std::string_view view(const QByteArray &bytes)
{
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

QString describe(const StreamEvent &event)
{
    const auto text =
        QString::fromUtf8(event.text.data(), static_cast<qsizetype>(event.text.size()));
    switch (event.type) {
    case StreamEvent::Type::Chunk:
        return QStringLiteral("chunk:") + text;
    case StreamEvent::Type::Error:
        return QStringLiteral("error:") + text;
    case StreamEvent::Type::Done:
        return QStringLiteral("done:%1,%2,%3,%4,%5")
            .arg(event.done.tokensRemaining)
            .arg(event.done.usageWarning75)
            .arg(event.done.usageWarning90)
            .arg(event.done.usedFallback)
            .arg(event.done.tokensUsed);
    }
    Q_UNREACHABLE();
}

void drain(StreamEventParser &parser, QStringList &events)
{
    while (const auto event = parser.next())
        events.append(describe(*event));
}

/// Parses @p body in pieces of @p piece bytes.
QStringList parse(const QByteArray &body, qsizetype piece = 1 << 20)
{
    StreamEventParser parser;
    QStringList events;
    for (qsizetype at = 0; at < body.size(); at += piece) {
        parser.feed(view(body.mid(at, piece)));
        drain(parser, events);
    }
    parser.finish();
    drain(parser, events);
    return events;
}

QByteArray chunkLine(const QByteArray &text)
{
    return R"(data: {"type":"chunk","text":")" + text + "\"}";
}

const QByteArray mixedStream =
    ": comment\r\nevent: message\r\n" + chunkLine("Hel") + "\r\n\r\n" + chunkLine("lo\\n") + "\r" +
    chunkLine("\xe2\x80\xa8 \xf0\x9f\x98\x80 \\u20ac") + "\n\ndata:{\"type\":\"chunk\"}\n" +
    "data: not json\ndata: {\"type\":\"later\",\"text\":\"x\"}\n" +
    "data: {\"text\":\"tail\", \"type\" : \"chunk\" }\n" +
    R"(data: {"type":"done","tokensRemaining":900,"tokensUsed":100,"usedFallback":true})";

const QStringList mixedEvents{QStringLiteral("chunk:Hel"), QStringLiteral("chunk:lo\n"),
                              QStringLiteral("chunk:\u2028 \U0001F600 \u20ac"),
                              QStringLiteral("chunk:tail"), QStringLiteral("done:900,0,0,1,100")};

} // namespace

class TestStreamEventParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesPayloads_data();
    void parsesPayloads();
    void fastPathMatchesGeneralParser();
    void parsesInputSplitAtEveryInterval();
    void parsesRandomlySplitInput();
    void splittingDoesNotAffectDamagedInput();
    void deliversCompleteLineImmediately();
    void finishCompletesLastLine();
    void waitsForIncompleteLine();
    void acceptsLinesUpToLimit();
    void rejectsLongerLines_data();
    void rejectsLongerLines();
    void growingBufferKeepsPendingBytes();
};

void TestStreamEventParser::parsesPayloads_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QStringList>("events");

    const auto row = [](const char *name, const QByteArray &line, const QStringList &events) {
        QTest::newRow(name) << line << events;
    };
    const QStringList none;
    const auto chunk = [](const QString &text) {
        return QStringList{QStringLiteral("chunk:") + text};
    };
    const auto done = [](const QString &fields) {
        return QStringList{QStringLiteral("done:") + fields};
    };
    const QString defaults = QStringLiteral("0,0,0,0,0");

    row("chunk", chunkLine("Hi"), chunk(QStringLiteral("Hi")));
    row("empty text", chunkLine(""), chunk({}));
    row("missing text", R"(data: {"type":"chunk"})", chunk({}));
    row("text is a number", R"(data: {"type":"chunk","text":5})", chunk({}));
    row("text is null", R"(data: {"type":"chunk","text":null})", chunk({}));
    row("text is an object", R"(data: {"type":"chunk","text":{"a":[1]}})", chunk({}));
    row("escapes", chunkLine(R"(a\"b\\c\/d\t\u00e9\ud83d\ude00)"),
        chunk(QStringLiteral("a\"b\\c/d\t\u00e9\U0001F600")));
    row("escaped key", R"(data: {"\u0074ype":"chunk","te\u0078t":"x"})",
        chunk(QStringLiteral("x")));
    row("white space", "data:   \t{ \"type\" :\t\"chunk\" , \"text\" : \"x\"  }  ",
        chunk(QStringLiteral("x")));
    row("unknown fields",
        R"(data: {"id":7,"type":"chunk","s":"\n","f":1.5e3,"b":true,"n":null,"text":"x"})",
        chunk(QStringLiteral("x")));
    row("nested unknown field", R"(data: {"a":[{"type":"error"}],"type":"chunk","text":"x"})",
        chunk(QStringLiteral("x")));
    row("duplicate keys", R"(data: {"type":"error","type":"chunk","text":"a","text":"b"})",
        chunk(QStringLiteral("b")));
    row("huge unknown number",
        R"(data: {"n":123456789012345678901234567890,"type":"chunk","text":"x"})",
        chunk(QStringLiteral("x")));
    row("invalid UTF-8",
        "data: {\"type\":\"chunk\",\"text\":\"a\xff"
        "b\xc3\"}",
        chunk(QStringLiteral("a\ufffdb\ufffd")));

    row("invalid UTF-8 and a huge number",
        R"(data: {"n":123456789012345678901234567890,"type":"chunk","text":"a)"
        "\xff\"}",
        chunk(QStringLiteral("a\ufffd")));
    row("lone surrogate", chunkLine(R"(a\ud83d)"), chunk(QStringLiteral("a\ufffd")));
    row("lone surrogates among escapes", chunkLine(R"(\\ud83d\uDC00\ud83d\ude00\"\ud800\ud800\n)"),
        chunk(QStringLiteral("\\ud83d\ufffd\U0001F600\"\ufffd\ufffd\n")));
    row("lone surrogate in a key", R"(data: {"\udfff":1,"type":"chunk","text":"x"})",
        chunk(QStringLiteral("x")));

    row("no space after the colon", R"(data:{"type":"chunk","text":"x"})", none);
    row("upper-case prefix", R"(DATA: {"type":"chunk","text":"x"})", none);
    row("leading space", R"( data: {"type":"chunk","text":"x"})", none);
    row("byte order mark", "\xef\xbb\xbf" + chunkLine("x"), none);
    row("prefix only", "data: ", none);
    row("other field", R"(event: {"type":"chunk","text":"x"})", none);
    row("not JSON", "data: [DONE", none);
    row("array", R"(data: [{"type":"chunk","text":"x"}])", none);
    row("string", R"(data: "chunk")", none);
    row("number", "data: 42", none);
    row("missing type", R"(data: {"text":"x"})", none);
    row("type is not a string", R"(data: {"type":1,"text":"x"})", none);
    row("unknown type", R"(data: {"type":"ping"})", none);
    row("capitalised type", R"(data: {"type":"Chunk","text":"x"})", none);
    row("unclosed object", R"(data: {"type":"chunk","text":"x")", none);
    row("unclosed string", R"(data: {"type":"chunk","text":"x})", none);
    row("missing comma", R"(data: {"type":"chunk" "text":"x"})", none);
    row("trailing comma", R"(data: {"type":"chunk","text":"x",})", none);
    row("trailing text", R"(data: {"type":"chunk","text":"x"} y)", none);
    row("second object", R"(data: {"type":"chunk","text":"x"}{"type":"chunk","text":"y"})", none);
    row("bad literal", R"(data: {"type":"chunk","text":"x","b":tru})", none);
    row("bad number", R"(data: {"type":"chunk","text":"x","n":01})", none);
    row("bad escape", R"(data: {"type":"chunk","text":"\q"})", none);
    row("single quotes", "data: {'type':'chunk','text':'x'}", none);
    row("control character", chunkLine("a\tb"), none);
    row("NUL in a text", chunkLine(QByteArray("a\0b", 3)), none);
    row("NUL after the object", chunkLine("a") + QByteArray("\0", 1), none);
    row("NUL before the prefix", QByteArray("\0", 1) + chunkLine("a"), none);
    row("comment", ": " + chunkLine("a"), none);
    row("number that only the lenient parser takes",
        R"(data: {"type":"chunk","text":"x","n":123456789012345678901234567890,"m":1.})", none);
    row("escape beside a lone surrogate", chunkLine(R"(\ud800\x)"), none);

    row("done",
        R"(data: {"type":"done","tokensRemaining":900,"usageWarning75":true,)"
        R"("usageWarning90":true,"usedFallback":true,"tokensUsed":100})",
        done(QStringLiteral("900,1,1,1,100")));
    row("done without fields", R"(data: {"type":"done"})", done(defaults));
    row("invalid booleans",
        R"(data: {"type":"done","usageWarning75":"yes","usageWarning90":1,"usedFallback":null})",
        done(defaults));
    row("invalid integers", R"(data: {"type":"done","tokensRemaining":"900","tokensUsed":true})",
        done(defaults));
    row("fractions", R"(data: {"type":"done","tokensRemaining":1.5,"tokensUsed":-0.1})",
        done(defaults));
    row("integral fractions", R"(data: {"type":"done","tokensRemaining":42.0,"tokensUsed":1e3})",
        done(QStringLiteral("42,0,0,0,1000")));
    row("negative and large",
        R"(data: {"type":"done","tokensRemaining":-5,"tokensUsed":9223372036854775807})",
        done(QStringLiteral("-5,0,0,0,9223372036854775807")));
    row("beyond 64 bits",
        R"(data: {"type":"done","tokensRemaining":9223372036854775808,"tokensUsed":1e300})",
        done(defaults));

    row("error", R"(data: {"type":"error","message":"Busy"})", {QStringLiteral("error:Busy")});
    row("error without message", R"(data: {"type":"error","text":"x"})",
        {QStringLiteral("error:Unknown error")});
    row("error with a non-string message", R"(data: {"type":"error","message":[]})",
        {QStringLiteral("error:Unknown error")});
    row("error with an empty message", R"(data: {"type":"error","message":""})",
        {QStringLiteral("error:")});
}

void TestStreamEventParser::parsesPayloads()
{
    QFETCH(QByteArray, line);
    QFETCH(QStringList, events);
    QCOMPARE(parse(line + '\n'), events);
    // Between two other lines, so that state leaking between lines is detected.
    const QStringList between = QStringList{QStringLiteral("chunk:before")} + events +
                                QStringList{QStringLiteral("chunk:after")};
    QCOMPARE(parse(chunkLine("before") + "\n" + line + "\r\n" + chunkLine("after") + "\n"),
             between);
}

void TestStreamEventParser::fastPathMatchesGeneralParser()
{
    // The usual layouts have a fast path; `general` does not.
    using Layout = std::pair<QByteArray, QByteArray>;
    const QList<Layout> layouts{{"{\"type\":\"chunk\",\"text\":\"", "\"}"},
                                {"{\"text\":\"", "\",\"type\":\"chunk\"}"},
                                {"{\"type\": \"chunk\", \"text\": \"", "\"}"},
                                {"{\"text\": \"", "\", \"type\": \"chunk\"}"}};
    const Layout general{"{ \"text\" :\"", "\", \"type\" : \"chunk\" }"};
    const auto read = [](const Layout &layout, const QByteArray &text) {
        return parse("data: " + layout.first + text + layout.second);
    };
    const QList<QByteArray> pieces{
        "x",    "\"",       "\\",   "\\n",  "\\u20ac",          "\x01", "\x1f",
        "\x7f", "\xc3\xa9", "\xc3", "\xff", "\xf0\x9f\x98\x80", "/",    " "};
    for (int length = 0; length < 20; ++length) {
        for (int at = 0; at <= length; ++at) {
            for (const QByteArray &piece : pieces) {
                const QByteArray text = QByteArray(length, 'a').insert(at, piece);
                const QStringList expected = read(general, text);
                for (const Layout &layout : layouts)
                    QCOMPARE(read(layout, text), expected);
            }
        }
    }
    for (const Layout &layout : layouts) {
        QCOMPARE(read(layout, {}), QStringList{QStringLiteral("chunk:")});
        // Prefix and suffix must not share a quote.
        QByteArray overlapping = layout.first + layout.second;
        overlapping.remove(layout.first.size(), 1);
        QCOMPARE(parse("data: " + overlapping), QStringList());
        QCOMPARE(read(layout, "a\",\"text\":\"b"), QStringList{QStringLiteral("chunk:b")});
    }
}

void TestStreamEventParser::parsesInputSplitAtEveryInterval()
{
    for (qsizetype piece = 1; piece <= mixedStream.size(); ++piece)
        QCOMPARE(parse(mixedStream, piece), mixedEvents);
}

void TestStreamEventParser::parsesRandomlySplitInput()
{
    QRandomGenerator random(20240611);
    QByteArray body;
    QStringList expected;
    for (int i = 0; i < 400; ++i) {
        const QByteArray text(random.bounded(300), static_cast<char>('a' + i % 26));
        body += chunkLine(text);
        body += std::array<const char *, 4>{"\n", "\r\n", "\n\n", "\r"}[i % 4];
        expected.append(QStringLiteral("chunk:") + QString::fromLatin1(text));
    }
    for (int round = 0; round < 50; ++round) {
        StreamEventParser parser;
        QStringList events;
        for (qsizetype at = 0; at < body.size();) {
            const qsizetype piece =
                std::min<qsizetype>(body.size() - at, random.bounded(1, round % 2 ? 20'000 : 200));
            parser.feed(
                view(body).substr(static_cast<std::size_t>(at), static_cast<std::size_t>(piece)));
            at += piece;
            // Do not read after every piece, as if several had arrived at once.
            if (random.bounded(3) != 0)
                drain(parser, events);
        }
        parser.finish();
        drain(parser, events);
        QCOMPARE(events, expected);
    }
}

void TestStreamEventParser::splittingDoesNotAffectDamagedInput()
{
    QRandomGenerator random(77);
    const QByteArray alphabet = "\"\\{}[]:,\r\n\x00\xff\xe2\x80u9te ";
    for (int round = 0; round < 3000; ++round) {
        QByteArray body = mixedStream;
        for (int change = random.bounded(1, 12); change > 0; --change) {
            const qsizetype at = random.bounded(static_cast<int>(body.size()));
            switch (random.bounded(3)) {
            case 0:
                body[at] = alphabet[random.bounded(static_cast<int>(alphabet.size()))];
                break;
            case 1:
                body.remove(at, random.bounded(1, 8));
                break;
            default:
                body.insert(at, body.mid(random.bounded(static_cast<int>(body.size())), 9));
            }
        }
        // Splitting must not change the result.
        QCOMPARE(parse(body, random.bounded(1, 40)), parse(body));
    }
}

void TestStreamEventParser::deliversCompleteLineImmediately()
{
    StreamEventParser parser;
    parser.feed(view(chunkLine("one")));
    QVERIFY(!parser.next());
    parser.feed("\r"); // does not wait for a line feed that may follow
    const auto event = parser.next();
    QVERIFY(event.has_value());
    QCOMPARE(describe(*event), QStringLiteral("chunk:one"));
    parser.feed("\n");
    QVERIFY(!parser.next());
}

void TestStreamEventParser::finishCompletesLastLine()
{
    QCOMPARE(parse(chunkLine("x")), QStringList{QStringLiteral("chunk:x")});
}

void TestStreamEventParser::waitsForIncompleteLine()
{
    StreamEventParser parser;
    parser.feed(view(chunkLine("x")));
    QVERIFY(!parser.next());
    QVERIFY(!parser.isLineTooLong());
}

void TestStreamEventParser::acceptsLinesUpToLimit()
{
    const QByteArray line = chunkLine(QByteArray(1000, 'x'));
    StreamEventParser parser(static_cast<std::size_t>(line.size()));
    parser.feed(view(line + "\n" + line + "\r\n"));
    QVERIFY(parser.next());
    QVERIFY(parser.next());
    QVERIFY(!parser.next());
    QVERIFY(!parser.isLineTooLong());
}

void TestStreamEventParser::rejectsLongerLines_data()
{
    QTest::addColumn<QByteArray>("ending");
    QTest::newRow("complete") << QByteArray("\n");
    QTest::newRow("incomplete") << QByteArray();
}

void TestStreamEventParser::rejectsLongerLines()
{
    QFETCH(QByteArray, ending);
    const QByteArray line = chunkLine(QByteArray(1000, 'x'));
    StreamEventParser parser(static_cast<std::size_t>(line.size()) - 1);
    parser.feed(view(chunkLine("first") + "\n" + line + ending));
    QVERIFY(parser.next()); // earlier lines are still delivered
    QVERIFY(!parser.isLineTooLong());
    QVERIFY(!parser.next());
    QVERIFY(parser.isLineTooLong());
    parser.feed(view("\n" + chunkLine("later") + "\n"));
    QVERIFY(!parser.next());
}

void TestStreamEventParser::growingBufferKeepsPendingBytes()
{
    const QByteArray text(3 * 1024 * 1024, 'y');
    QCOMPARE(parse(chunkLine("a") + "\n" + chunkLine(text) + "\n" + chunkLine("b") + "\n", 10'000),
             (QStringList{QStringLiteral("chunk:a"),
                          QStringLiteral("chunk:") + QString::fromLatin1(text),
                          QStringLiteral("chunk:b")}));
}

QUELLORA_TEST(QCoreApplication, TestStreamEventParser)
#include "test_stream_event_parser.moc"
