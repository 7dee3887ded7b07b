#include "backend/Records.h"
#include "base/Json.h"
#include "base/UserDefaults.h"
#include "base/VantiroConfig.h"
#include "corpora/Corpora.h"
#include "fakes/LogCapture.h"
#include "history/SessionFile.h"
#include "history/ThreadSummaryReader.h"
#include "query/StreamEventParser.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace quellora;
using corpora::JsonCase;
using Verdict = JsonCase::Verdict;

namespace {

const QString threadId = QStringLiteral("5B0A4E57-0F0B-4E0B-9C39-2E26E3A0B9D1");

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qUtf8Printable(path));
}

bool takesRecord(const QByteArray &json)
{
    return LoginResponse::decode(json).has_value();
}

bool takesStreamEvent(const QByteArray &json)
{
    StreamEventParser parser;
    const QByteArray line = "data: " + json + '\n';
    parser.feed({line.constData(), static_cast<std::size_t>(line.size())});
    const auto event = parser.next();
    return event && event->text == "x";
}

bool takesSessionFile(const QByteArray &json)
{
    return SessionFile::decode(json).has_value();
}

bool listsThread(const QByteArray &json)
{
    const QTemporaryDir root;
    QDir(root.path()).mkdir(threadId);
    write(root.filePath(threadId + QStringLiteral("/session.json")), json);
    return ThreadSummaryReader(root.path()).read(QUuid(threadId)).has_value();
}

bool takesConfig(const QByteArray &json)
{
    QString error;
    return VantiroConfig::decode(json, {}, &error).has_value();
}

/// Whether the value that every case has beside it is read.
bool takesDefaults(const QByteArray &json)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("defaults.json"));
    write(path, json);
    LogCapture log;
    const JsonUserDefaults defaults(path);
    const bool isDamaged = QFile::exists(path + QStringLiteral(".damaged"));
    // What cannot be read is kept, byte by byte.
    if (isDamaged) {
        QFile kept(path + QStringLiteral(".damaged"));
        if (!kept.open(QIODevice::ReadOnly) || kept.readAll() != json)
            qFatal("the damaged file is not kept");
    }
    return !isDamaged;
}

struct Reader
{
    const char *name;
    std::function<bool(const QByteArray &json)> takes;
    /// A good record; "@" stands for further members, or in the list of the record below.
    QByteArray record;
};

const QByteArray goodConfig =
    R"({"model":"m","availableModels":[],"defaultPrompt":"","minimumAppVersion":"1","tokensUsed":0,)"
    R"("tokensRemaining":0,"tokenCap":0,"usageWarning75":false,"usageWarning90":false,"plan":"p",)"
    R"("subscriptionStatus":"s"@})";

const QList<Reader> &readers()
{
    static const QByteArray thread =
        R"({"id":"5B0A4E57-0F0B-4E0B-9C39-2E26E3A0B9D1","createdAt":"2026-01-01T00:00:00Z",)"
        R"("updatedAt":"2026-01-01T00:00:00Z","screenshots":[],)";
    static const QByteArray topLevel = thread + R"("notes":[],"turns":[]@})";
    static const QByteArray inNote =
        thread + R"("turns":[],"notes":[{"id":"5B0A4E57-0F0B-4E0B-9C39-2E26E3A0B9D1","text":"n",)"
                 R"("createdAt":"2026-01-01T00:00:00Z"@}]})";
    static const QByteArray inTurn =
        thread + R"("notes":[],"turns":[{"id":"5B0A4E57-0F0B-4E0B-9C39-2E26E3A0B9D1","prompt":"p",)"
                 R"("response":"r","createdAt":"2026-01-01T00:00:00Z"@}]})";
    static const QList<Reader> list{
        {"record", takesRecord,
         R"({"token":"t","sessionId":"s"@,"config":)" + QByteArray(goodConfig).replace('@', "") +
             '}'},
        {"configuration in a record", takesRecord,
         R"({"token":"t","sessionId":"s","config":)" + goodConfig + '}'},
        {"stream event", takesStreamEvent, R"({"type":"chunk","text":"x"@})"},
        {"session.json", takesSessionFile, topLevel},
        {"session.json, note", takesSessionFile, inNote},
        {"session.json, turn", takesSessionFile, inTurn},
        {"list of threads", listsThread, topLevel},
        {"list of threads, note", listsThread, inNote},
        {"list of threads, turn", listsThread, inTurn},
        {"config.json", takesConfig,
         R"({"hotkeys":{},"overlay":{"x":0,"y":0,"width":1,"height":1,"default_opacity":1}@})"},
        {"defaults.json", takesDefaults, R"({"a":1@})"},
    };
    return list;
}

QByteArray recordWith(const Reader &reader, const QByteArray &member)
{
    QByteArray record = reader.record;
    return record.replace('@', member);
}

/// What the standard leaves to the reader and the program refuses: numbers too large for a double,
/// and UTF-16 or a byte order mark in the middle of UTF-8.
const QStringList refusedChoices{
    QStringLiteral("i_number_huge_exp"),
    QStringLiteral("i_number_neg_int_huge_exp"),
    QStringLiteral("i_number_pos_double_huge_exp"),
    QStringLiteral("i_number_real_neg_overflow"),
    QStringLiteral("i_number_real_pos_overflow"),
    QStringLiteral("i_string_UTF-16LE_with_BOM"),
    QStringLiteral("i_string_utf16BE_no_BOM"),
    QStringLiteral("i_string_utf16LE_no_BOM"),
    QStringLiteral("i_structure_UTF-8_BOM_empty_object"),
};
/// Numbers too small for a double, which the parser of stream events reads as 0.
const QStringList choicesOfTheStream{QStringLiteral("i_number_double_huge_neg_exp"),
                                     QStringLiteral("i_number_real_underflow")};

} // namespace

/// Every reader of JSON against a suite of cases of the standard (RFC 8259).
class TestJsonSuite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void suiteIsComplete();
    void objects();
    void wholeDocuments_data();
    void wholeDocuments();
    void valuesOfUnknownKeys_data();
    void valuesOfUnknownKeys();
};

void TestJsonSuite::suiteIsComplete()
{
    QCOMPARE(corpora::jsonCases().size(), 318);
}

/// The parser that most readers share takes all objects of the standard, and nothing else.
void TestJsonSuite::objects()
{
    for (const JsonCase &each : corpora::jsonCases()) {
        const bool isObject = each.text.trimmed().startsWith('{');
        const bool isTaken = parseJsonObject(each.text).has_value();
        if (each.verdict == Verdict::Accepts)
            QVERIFY2(isTaken == isObject, qUtf8Printable(each.name));
        else if (each.verdict == Verdict::Refuses)
            QVERIFY2(!isTaken, qUtf8Printable(each.name));
    }
}

void TestJsonSuite::wholeDocuments_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < readers().size(); ++i)
        QTest::newRow(readers().at(i).name) << i;
}

/// No case is a good record, but any object is a good file of preferences.
void TestJsonSuite::wholeDocuments()
{
    QFETCH(int, index);
    const Reader &reader = readers().at(index);
    QStringList wrong;
    for (const JsonCase &each : corpora::jsonCases()) {
        const bool mayTake =
            each.verdict != Verdict::Refuses && QByteArray(reader.name) == "defaults.json";
        if (reader.takes(each.text) && !mayTake)
            wrong.append(each.name);
    }
    QCOMPARE(wrong.join(QLatin1Char('\n')), QString());
}

void TestJsonSuite::valuesOfUnknownKeys_data()
{
    wholeDocuments_data();
}

/// Records of a newer program, whose new values may be anything.
void TestJsonSuite::valuesOfUnknownKeys()
{
    QFETCH(int, index);
    const Reader &reader = readers().at(index);
    QVERIFY(reader.takes(recordWith(reader, {})));
    const bool isStream = QByteArray(reader.name) == "stream event";
    QStringList wrong;
    for (const JsonCase &each : corpora::jsonCases()) {
        const bool isTaken = reader.takes(recordWith(reader, R"(,"new":)" + each.text));
        bool isExpected = each.verdict == Verdict::Accepts;
        if (each.verdict == Verdict::Chooses)
            isExpected = !refusedChoices.contains(each.name) &&
                         (isStream || !choicesOfTheStream.contains(each.name));
        // An event is one line, so a line break inside its JSON ends it.
        if (isStream && (each.text.contains('\n') || each.text.contains('\r')))
            isExpected = false;
        if (isTaken != isExpected)
            wrong.append(each.name +
                         (isTaken ? QStringLiteral(" taken") : QStringLiteral(" refused")));
    }
    QCOMPARE(wrong.join(QLatin1Char('\n')), QString());
}

QUELLORA_TEST(QCoreApplication, TestJsonSuite)
#include "test_json_suite.moc"
