#include "backend/Records.h"
#include "corpora/Corpora.h"
#include "history/CaptureSessionStore.h"
#include "history/ThreadSummaryReader.h"
#include "history/ThreadTextReader.h"
#include "query/ProxyQueryService.h"
#include "query/StreamEventParser.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

namespace {

QByteArray textOf(const StreamEvent &event)
{
    return {event.text.data(), static_cast<qsizetype>(event.text.size())};
}

} // namespace

/// Strings that are known to trouble programs go through everything that stores or sends a text.
class TestNaughtyStrings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void listIsComplete();
    void threadsKeepThem();
    void titlesAreListed();
    void searchesFindThem();
    void questionsAreSent();
    void answersArrive();
    void signInSendsThem();
    void modelNamesAreRead();

private:
    QString root() const { return m_folder->filePath(QStringLiteral("Quellora/sessions")); }
    /// A new thread of which everything is kept.
    static CaptureSession keptThread()
    {
        CaptureSession session = CaptureSession::create();
        session.beginPersistingTurns();
        return session;
    }
    /// Stores a thread and returns it as it was loaded again.
    CaptureSession stored(const CaptureSession &session)
    {
        const CaptureSessionStore store(m_folder->path());
        if (!store.save(session))
            qFatal("the thread was not stored");
        return store.load(session.id).value();
    }

    QStringList m_strings;
    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestNaughtyStrings::initTestCase()
{
    m_strings = corpora::naughtyStrings();
}

void TestNaughtyStrings::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestNaughtyStrings::listIsComplete()
{
    QCOMPARE(m_strings.size(), 485);
}

/// Byte by byte; a note of nothing but white space is not added.
void TestNaughtyStrings::threadsKeepThem()
{
    CaptureSession session = keptThread();
    QStringList notes;
    for (const QString &text : m_strings) {
        QCOMPARE(session.addNote(text), !text.trimmed().isEmpty());
        if (!text.trimmed().isEmpty())
            notes.append(text);
        session.addTurn(text, text, QDateTime::currentDateTimeUtc());
    }
    const CaptureSession loaded = stored(session);
    QCOMPARE(loaded.notes.size(), notes.size());
    for (qsizetype i = 0; i < notes.size(); ++i)
        QCOMPARE(loaded.notes.at(i).text, notes.at(i));
    QCOMPARE(loaded.turns.size(), m_strings.size());
    for (qsizetype i = 0; i < m_strings.size(); ++i) {
        QCOMPARE(loaded.turns.at(i).prompt, m_strings.at(i));
        QCOMPARE(loaded.turns.at(i).response, m_strings.at(i));
    }
}

/// As a title of the user's own, and as the title that a thread gets from its first question.
void TestNaughtyStrings::titlesAreListed()
{
    ThreadSummaryReader list(root());
    for (const QString &text : m_strings) {
        CaptureSession session = keptThread();
        session.addTurn(text, QStringLiteral("answer"), QDateTime::currentDateTimeUtc());
        session.customTitle = text;
        QCOMPARE(stored(session).customTitle, text);
        const auto summary = list.read(session.id);
        QVERIFY2(summary, qUtf8Printable(text));
        QCOMPARE(summary->customTitle, text);
        QCOMPARE(summary->previewText, session.previewText());
    }
}

void TestNaughtyStrings::searchesFindThem()
{
    TextFolding folding(QLocale::c());
    for (const QString &text : m_strings) {
        if (text.trimmed().isEmpty())
            continue;
        CaptureSession session = keptThread();
        session.addTurn(QStringLiteral("before ") + text + QStringLiteral(" after"), {},
                        QDateTime::currentDateTimeUtc());
        stored(session);
        const auto hit = ThreadTextReader(root(), text, QLocale::c()).find(session.id);
        QVERIFY2(hit, qUtf8Printable(text));
        QCOMPARE(hit->place, ThreadHit::Place::Question);
        // White space is shown as one space; searches see no accents, not even alone.
        const QString occurrence = hit->snippet.mid(hit->start, hit->length);
        QVERIFY2(!occurrence.isEmpty() && text.simplified().contains(occurrence.simplified()),
                 qUtf8Printable(text));
        QCOMPARE(folding.fold(occurrence.toStdString()).trimmed(),
                 folding.fold(text.toStdString()).trimmed());
    }
}

void TestNaughtyStrings::questionsAreSent()
{
    for (const QString &text : m_strings) {
        QueryRequest request{text, {}, {}, {}};
        request.model = text;
        const QJsonDocument body = QJsonDocument::fromJson(ProxyQueryService::encodeBody(request));
        QCOMPARE(body[QLatin1String("prompt")].toString(), text);
        QCOMPARE(body[QLatin1String("model")].toString(), text);
    }
}

void TestNaughtyStrings::answersArrive()
{
    StreamEventParser parser;
    for (const QString &text : m_strings) {
        const QByteArray line =
            "data: " +
            QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("chunk")},
                                      {QStringLiteral("text"), text}})
                .toJson(QJsonDocument::Compact) +
            "\n\n";
        parser.feed({line.constData(), static_cast<std::size_t>(line.size())});
        const auto event = parser.next();
        QVERIFY2(event, qUtf8Printable(text));
        QCOMPARE(textOf(*event), text.toUtf8());
        QVERIFY(!parser.next());
    }
}

void TestNaughtyStrings::signInSendsThem()
{
    for (const QString &text : m_strings) {
        const QJsonDocument body =
            QJsonDocument::fromJson(encodeLoginRequest(text, text, {text, {{text, text}}, text}));
        QCOMPARE(body[QLatin1String("email")].toString(), text);
        QCOMPARE(body[QLatin1String("password")].toString(), text);
        QCOMPARE(body[QLatin1String("osVersion")].toString(), text);
        QCOMPARE(body[QLatin1String("hotkeys")].toObject(), (QJsonObject{{text, text}}));
    }
}

void TestNaughtyStrings::modelNamesAreRead()
{
    for (const QString &text : m_strings) {
        const ModelOption model{text, text, text};
        const auto read = ModelOption::fromJson(model.toJson());
        QVERIFY(read);
        QCOMPARE(*read, model);
        AdminMessagePayload message;
        message.id = message.type = message.headerText = message.bodyMarkdown = text;
        message.actionLabel = message.actionUrl = text;
        QCOMPARE(AdminMessagePayload::fromJson(message.toJson()).value(), message);
    }
}

QUELLORA_TEST(QCoreApplication, TestNaughtyStrings)
#include "test_naughty_strings.moc"
