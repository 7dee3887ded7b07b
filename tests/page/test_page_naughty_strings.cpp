#include "corpora/Corpora.h"
#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace quellora;

/// Strings that are known to trouble programs are shown as they are, as notes, as questions and as
/// code in answers.
class TestPageNaughtyStrings : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { EnginePageTest::init(); }
    void cleanup() { EnginePageTest::cleanup(); }
    void threadShowsThem();
    void streamedCodeShowsThem();

private:
    /// The texts of the elements that match.
    QStringList texts(const char *selector)
    {
        const QString json = m_engine->text(
            QStringLiteral("JSON.stringify([...document.querySelectorAll('%1')].map(e => "
                           "e.textContent))")
                .arg(QLatin1String(selector)));
        QStringList list;
        for (const QJsonValue &value : QJsonDocument::fromJson(json.toUtf8()).array())
            list << value.toString();
        return list;
    }
};

void TestPageNaughtyStrings::threadShowsThem()
{
    CaptureSession session = CaptureSession::create();
    QStringList expected;
    QDateTime time = QDateTime::currentDateTime();
    for (const QString &text : corpora::naughtyStrings()) {
        if (text.trimmed().isEmpty())
            continue;
        time = time.addSecs(2);
        session.addNote(text, time);
        session.addTurn(text, QStringLiteral("answer"), time.addSecs(1));
        expected << text << text;
    }
    QVERIFY(finished(m_display->renderThread(session)));
    const QStringList shown = texts(".truncatable");
    for (qsizetype i = 0; i < std::min(shown.size(), expected.size()); ++i)
        QCOMPARE(shown.at(i), expected.at(i));
    QCOMPARE(shown.size(), expected.size());
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
}

void TestPageNaughtyStrings::streamedCodeShowsThem()
{
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    QStringList expected;
    for (const QString &text : corpora::naughtyStrings()) {
        // A line break would end the code of some strings.
        if (text.contains(QLatin1Char('\r')) || text.trimmed().isEmpty())
            continue;
        expected << text + QLatin1Char('\n');
        renderer.handleStreamChunk(QStringLiteral("~~~~~~text\n"));
        renderer.handleStreamChunk(text);
        renderer.handleStreamChunk(QStringLiteral("\n~~~~~~\n\n"));
    }
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(texts("#streaming-response pre code").size(), expected.size());
    const QStringList shown = texts("#streaming-response pre code");
    for (qsizetype i = 0; i < expected.size(); ++i)
        QCOMPARE(shown.at(i), expected.at(i));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageNaughtyStrings>)
#include "test_page_naughty_strings.moc"
