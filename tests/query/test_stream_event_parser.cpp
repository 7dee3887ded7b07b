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

QString show(const StreamEvent &event)
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
        events.append(show(*event));
}

/// Feeds @p body in pieces of @p piece bytes.
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
    void readsPayloads_data();
    void readsPayloads();
    void spellingMakesNoDifference();
    void givesTheSameForEveryPieceSize();
    void givesTheSameForRandomPieces();
    void survivesDamagedStreams();
    void deliversALineAsSoonAsItIsComplete();
    void endOfBodyCompletesTheLastLine();
    void holdsBackAnUnfinishedLine();
    void linesUpToTheLimitPass();
    void longerLinesFail_data();
    void longerLinesFail();
    void keepsPendingBytesWhenTheBufferGrows();
};

void TestStreamEventParser::readsPayloads_data()
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
    const auto done = [](const QString &figures) {
        return QStringList{QStringLiteral("done:") + figures};
    };
    const QString nothingDone = QStringLiteral("0,0,0,0,0");

    row("chunk", chunkLine("Hi"), chunk(QStringLiteral("Hi")));
    row("empty text", chunkLine(""), chunk({}));
    row("no text", R"(data: {"type":"chunk"})", chunk({}));
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
    row("last of equal keys", R"(data: {"type":"error","type":"chunk","text":"a","text":"b"})",
        chunk(QStringLiteral("b")));
    row("huge unknown number",
        R"(data: {"n":123456789012345678901234567890,"type":"chunk","text":"x"})",
        chunk(QStringLiteral("x")));
    row("not UTF-8",
        "data: {\"type\":\"chunk\",\"text\":\"a\xff"
        "b\xc3\"}",
        chunk(QStringLiteral("a\ufffdb\ufffd")));

    row("no blank after the colon", R"(data:{"type":"chunk","text":"x"})", none);
    row("prefix in capitals", R"(DATA: {"type":"chunk","text":"x"})", none);
    row("blank before the prefix", R"( data: {"type":"chunk","text":"x"})", none);
    row("byte order mark", "\xef\xbb\xbf" + chunkLine("x"), none);
    row("prefix alone", "data: ", none);
    row("other field", R"(event: {"type":"chunk","text":"x"})", none);
    row("not JSON", "data: [DONE", none);
    row("array", R"(data: [{"type":"chunk","text":"x"}])", none);
    row("string", R"(data: "chunk")", none);
    row("number", "data: 42", none);
    row("no type", R"(data: {"text":"x"})", none);
    row("type is no text", R"(data: {"type":1,"text":"x"})", none);
    row("unknown type", R"(data: {"type":"ping"})", none);
    row("type in capitals", R"(data: {"type":"Chunk","text":"x"})", none);
    row("unfinished", R"(data: {"type":"chunk","text":"x")", none);
    row("unclosed string", R"(data: {"type":"chunk","text":"x})", none);
    row("missing comma", R"(data: {"type":"chunk" "text":"x"})", none);
    row("trailing comma", R"(data: {"type":"chunk","text":"x",})", none);
    row("something behind", R"(data: {"type":"chunk","text":"x"} y)", none);
    row("second object", R"(data: {"type":"chunk","text":"x"}{"type":"chunk","text":"y"})", none);
    row("bad literal", R"(data: {"type":"chunk","text":"x","b":tru})", none);
    row("bad number", R"(data: {"type":"chunk","text":"x","n":01})", none);
    row("bad escape", R"(data: {"type":"chunk","text":"\q"})", none);
    row("single quotes", "data: {'type':'chunk','text':'x'}", none);
    row("control character", chunkLine("a\tb"), none);

    row("done",
        R"(data: {"type":"done","tokensRemaining":900,"usageWarning75":true,)"
        R"("usageWarning90":true,"usedFallback":true,"tokensUsed":100})",
        done(QStringLiteral("900,1,1,1,100")));
    row("done, nothing given", R"(data: {"type":"done"})", done(nothingDone));
    row("flags that are none",
        R"(data: {"type":"done","usageWarning75":"yes","usageWarning90":1,"usedFallback":null})",
        done(nothingDone));
    row("figures that are none",
        R"(data: {"type":"done","tokensRemaining":"900","tokensUsed":true})", done(nothingDone));
    row("fractions", R"(data: {"type":"done","tokensRemaining":1.5,"tokensUsed":-0.1})",
        done(nothingDone));
    row("integral fractions", R"(data: {"type":"done","tokensRemaining":42.0,"tokensUsed":1e3})",
        done(QStringLiteral("42,0,0,0,1000")));
    row("negative and large",
        R"(data: {"type":"done","tokensRemaining":-5,"tokensUsed":9223372036854775807})",
        done(QStringLiteral("-5,0,0,0,9223372036854775807")));
    row("beyond 64 bits",
        R"(data: {"type":"done","tokensRemaining":9223372036854775808,"tokensUsed":1e300})",
        done(nothingDone));

    row("error", R"(data: {"type":"error","message":"Busy"})", {QStringLiteral("error:Busy")});
    row("error without message", R"(data: {"type":"error","text":"x"})",
        {QStringLiteral("error:Unknown error")});
    row("error with another kind of message", R"(data: {"type":"error","message":[]})",
        {QStringLiteral("error:Unknown error")});
    row("error with an empty message", R"(data: {"type":"error","message":""})",
        {QStringLiteral("error:")});
}

void TestStreamEventParser::readsPayloads()
{
    QFETCH(QByteArray, line);
    QFETCH(QStringList, events);
    QCOMPARE(parse(line + '\n'), events);
    // The same between two other lines, so that nothing leaks from one to the next.
    const QStringList between = QStringList{QStringLiteral("chunk:before")} + events +
                                QStringList{QStringLiteral("chunk:after")};
    QCOMPARE(parse(chunkLine("before") + "\n" + line + "\r\n" + chunkLine("after") + "\n"),
             between);
}

void TestStreamEventParser::spellingMakesNoDifference()
{
    // Some spellings are read in a quicker way than the last one here.
    using Spelling = std::pair<QByteArray, QByteArray>;
    const QList<Spelling> spellings{{"{\"type\":\"chunk\",\"text\":\"", "\"}"},
                                    {"{\"text\":\"", "\",\"type\":\"chunk\"}"},
                                    {"{\"type\": \"chunk\", \"text\": \"", "\"}"},
                                    {"{\"text\": \"", "\", \"type\": \"chunk\"}"}};
    const Spelling general{"{ \"text\" :\"", "\", \"type\" : \"chunk\" }"};
    const auto read = [](const Spelling &spelling, const QByteArray &text) {
        return parse("data: " + spelling.first + text + spelling.second);
    };
    const QList<QByteArray> pieces{
        "x",    "\"",       "\\",   "\\n",  "\\u20ac",          "\x01", "\x1f",
        "\x7f", "\xc3\xa9", "\xc3", "\xff", "\xf0\x9f\x98\x80", "/",    " "};
    for (int length = 0; length < 20; ++length) {
        for (int at = 0; at <= length; ++at) {
            for (const QByteArray &piece : pieces) {
                const QByteArray text = QByteArray(length, 'a').insert(at, piece);
                const QStringList expected = read(general, text);
                for (const Spelling &spelling : spellings)
                    QCOMPARE(read(spelling, text), expected);
            }
        }
    }
    for (const Spelling &spelling : spellings) {
        QCOMPARE(read(spelling, {}), QStringList{QStringLiteral("chunk:")});
        // Start and end must not share a quote.
        QByteArray overlapping = spelling.first + spelling.second;
        overlapping.remove(spelling.first.size(), 1);
        QCOMPARE(parse("data: " + overlapping), QStringList());
        QCOMPARE(read(spelling, "a\",\"text\":\"b"), QStringList{QStringLiteral("chunk:b")});
    }
}

void TestStreamEventParser::givesTheSameForEveryPieceSize()
{
    for (qsizetype piece = 1; piece <= mixedStream.size(); ++piece)
        QCOMPARE(parse(mixedStream, piece), mixedEvents);
}

void TestStreamEventParser::givesTheSameForRandomPieces()
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
            // Not every piece is followed by reading, as when several arrive at once.
            if (random.bounded(3) != 0)
                drain(parser, events);
        }
        parser.finish();
        drain(parser, events);
        QCOMPARE(events, expected);
    }
}

void TestStreamEventParser::survivesDamagedStreams()
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
        // However a stream is damaged, how it is cut makes no difference.
        QCOMPARE(parse(body, random.bounded(1, 40)), parse(body));
    }
}

void TestStreamEventParser::deliversALineAsSoonAsItIsComplete()
{
    StreamEventParser parser;
    parser.feed(view(chunkLine("one")));
    QVERIFY(!parser.next());
    parser.feed("\r"); // the line feed that may follow is not waited for
    const auto event = parser.next();
    QVERIFY(event.has_value());
    QCOMPARE(show(*event), QStringLiteral("chunk:one"));
    parser.feed("\n");
    QVERIFY(!parser.next());
}

void TestStreamEventParser::endOfBodyCompletesTheLastLine()
{
    QCOMPARE(parse(chunkLine("x")), QStringList{QStringLiteral("chunk:x")});
}

void TestStreamEventParser::holdsBackAnUnfinishedLine()
{
    StreamEventParser parser;
    parser.feed(view(chunkLine("x")));
    QVERIFY(!parser.next());
    QVERIFY(!parser.isLineTooLong());
}

void TestStreamEventParser::linesUpToTheLimitPass()
{
    const QByteArray line = chunkLine(QByteArray(1000, 'x'));
    StreamEventParser parser(static_cast<std::size_t>(line.size()));
    parser.feed(view(line + "\n" + line + "\r\n"));
    QVERIFY(parser.next());
    QVERIFY(parser.next());
    QVERIFY(!parser.next());
    QVERIFY(!parser.isLineTooLong());
}

void TestStreamEventParser::longerLinesFail_data()
{
    QTest::addColumn<QByteArray>("ending");
    QTest::newRow("complete") << QByteArray("\n");
    QTest::newRow("still growing") << QByteArray();
}

void TestStreamEventParser::longerLinesFail()
{
    QFETCH(QByteArray, ending);
    const QByteArray line = chunkLine(QByteArray(1000, 'x'));
    StreamEventParser parser(static_cast<std::size_t>(line.size()) - 1);
    parser.feed(view(chunkLine("first") + "\n" + line + ending));
    QVERIFY(parser.next()); // what came before counts
    QVERIFY(!parser.isLineTooLong());
    QVERIFY(!parser.next());
    QVERIFY(parser.isLineTooLong());
    parser.feed(view("\n" + chunkLine("later") + "\n"));
    QVERIFY(!parser.next());
}

void TestStreamEventParser::keepsPendingBytesWhenTheBufferGrows()
{
    const QByteArray text(3 * 1024 * 1024, 'y');
    QCOMPARE(parse(chunkLine("a") + "\n" + chunkLine(text) + "\n" + chunkLine("b") + "\n", 10'000),
             (QStringList{QStringLiteral("chunk:a"),
                          QStringLiteral("chunk:") + QString::fromLatin1(text),
                          QStringLiteral("chunk:b")}));
}

QUELLORA_TEST(QCoreApplication, TestStreamEventParser)
#include "test_stream_event_parser.moc"
