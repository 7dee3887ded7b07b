#include "history/SessionFile.h"
#include "history/StoreFixture.h"
#include "history/ThreadSummaryReader.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTest>
#include <QTimeZone>

using namespace quellora;

namespace {

/// A valid description for tests that damage single keys.
QJsonObject validDescription()
{
    const QString date = "2026-03-01T14:05:09Z";
    const QString id = "6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14";
    return {{"id", id},
            {"createdAt", date},
            {"updatedAt", date},
            {"notes", QJsonArray{QJsonObject{{"id", id}, {"text", "t"}, {"createdAt", date}}}},
            {"turns", QJsonArray{QJsonObject{
                          {"id", id}, {"prompt", "p"}, {"response", "r"}, {"createdAt", date}}}},
            {"screenshots", QJsonArray{QJsonObject{{"index", 0}, {"capturedAt", date}}}}};
}

QByteArray bytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson();
}

} // namespace

class TestSessionFile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void validDescriptionIsDecoded()
    {
        const auto file = SessionFile::decode(bytes(validDescription()));
        QVERIFY2(file, file ? "" : qPrintable(file.error()));
        QCOMPARE(file->notes.size(), 1);
        QCOMPARE(file->turns.size(), 1);
        QCOMPARE(file->screenshots.size(), 1);
        QVERIFY(!file->customTitle);
    }

    void invalidKeyIsReported_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("reason");
        const QByteArray whole = bytes(validDescription());
        QTest::newRow("empty") << QByteArray() << "";
        QTest::newRow("truncated") << whole.left(whole.size() / 2) << "";
        QTest::newRow("missing last brace") << whole.trimmed().chopped(1) << "";
        QTest::newRow("trailing text") << whole + "x"
                                       << "";
        QTest::newRow("zeros") << QByteArray(whole.size(), '\0') << "";
        QTest::newRow("invalid UTF-8") << QByteArray(whole).replace("\"t\"", "\"\xff\xfe\"") << "";
        QTest::newRow("array") << QByteArray("[]") << "not a JSON object";
        for (const char *key : {"id", "createdAt", "updatedAt", "notes", "turns", "screenshots"}) {
            QJsonObject without = validDescription();
            without.remove(QLatin1String(key));
            QTest::addRow("without %s", key) << bytes(without) << key;
            QJsonObject wrong = validDescription();
            wrong[QLatin1String(key)] = true;
            QTest::addRow("wrong %s", key) << bytes(wrong) << key;
        }
        const std::pair<const char *, QList<const char *>> lists[] = {
            {"notes", {"id", "text", "createdAt"}},
            {"turns", {"id", "prompt", "response", "createdAt"}},
            {"screenshots", {"index", "capturedAt"}}};
        for (const auto &[list, keys] : lists) {
            QJsonObject noObject = validDescription();
            noObject[QLatin1String(list)] = QJsonArray{7};
            QTest::addRow("%s of numbers", list) << bytes(noObject) << "an entry is not an object";
            for (const char *key : keys) {
                QJsonObject description = validDescription();
                QJsonObject item = description[QLatin1String(list)][0].toObject();
                item.remove(QLatin1String(key));
                description[QLatin1String(list)] = QJsonArray{item};
                QTest::addRow("%s without %s", list, key) << bytes(description) << key;
            }
        }
        const std::tuple<const char *, const char *, QJsonValue> values[] = {
            {"date as word", "createdAt", "yesterday"},
            {"nonexistent date", "createdAt", "2026-02-30T14:05:09Z"},
            {"date without time zone", "updatedAt", "2026-03-01T14:05:09"},
            {"id with braces", "id", "{6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14}"},
            {"id with trailing text", "id", "6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14/.."},
            {"title as number", "customTitle", 5}};
        for (const auto &[name, key, value] : values) {
            QJsonObject description = validDescription();
            description[QLatin1String(key)] = value;
            QTest::newRow(name) << bytes(description) << key;
        }
        for (const QJsonValue &index : {QJsonValue("0"), QJsonValue(0.5), QJsonValue(1e300)}) {
            QJsonObject withScreenshot = validDescription();
            QJsonObject turn = withScreenshot["turns"][0].toObject();
            turn["screenshotIndex"] = index;
            withScreenshot["turns"] = QJsonArray{turn};
            QTest::addRow("turn screenshot %s", bytes({{"", index}}).simplified().constData())
                << bytes(withScreenshot) << "screenshotIndex";
            QJsonObject description = validDescription();
            description["screenshots"] =
                QJsonArray{QJsonObject{{"index", index}, {"capturedAt", "2026-03-01T14:05:09Z"}}};
            QTest::addRow("index %s", bytes({{"", index}}).simplified().constData())
                << bytes(description) << "index";
        }
    }
    void invalidKeyIsReported()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, reason);
        const auto file = SessionFile::decode(json);
        QVERIFY(!file);
        QVERIFY(!file.error().isEmpty());
        QVERIFY2(file.error().contains(reason), qPrintable(file.error()));

        // The store reports the error on loading and renaming and leaves the file unchanged.
        StoreFixture f;
        const QUuid id = QUuid::createUuid();
        QVERIFY(QDir().mkpath(f.folder(id)));
        writeFile(f.description(id), json);
        QCOMPARE(f.store.load(id).error().kind, StoreError::Kind::Decoding);
        QCOMPARE(f.store.load(id).error().description(), file.error());
        QCOMPARE(f.store.updateTitle(id, "T").error().kind, StoreError::Kind::Decoding);
        QCOMPARE(contentOf(f.description(id)), json);
    }

    void datesAreUtcWithoutFractions()
    {
        SessionFile file;
        file.createdAt = QDateTime({2026, 12, 31}, {23, 59, 59, 999}, Qt::OffsetFromUTC, -3600);
        file.updatedAt = QDateTime({2026, 3, 1}, {1, 2, 3}, QTimeZone(19800));
        const QJsonObject json = QJsonDocument::fromJson(file.encode()).object();
        QCOMPARE(json["createdAt"].toString(), "2027-01-01T00:59:59Z");
        QCOMPARE(json["updatedAt"].toString(), "2026-02-28T19:32:03Z");
    }

    void otherDateFormsAreAccepted()
    {
        QJsonObject description = validDescription();
        description["createdAt"] = "2026-03-01T15:05:09+01:00";
        description["updatedAt"] = "2026-03-01T14:05:09.750Z";
        const auto file = SessionFile::decode(bytes(description));
        QVERIFY(file);
        QCOMPARE(file->createdAt.toSecsSinceEpoch(), t0.toSecsSinceEpoch());
        QCOMPARE(file->updatedAt.toMSecsSinceEpoch(), t0.toMSecsSinceEpoch());
    }

    void nullTitleIsNoTitle()
    {
        QJsonObject description = validDescription();
        description["customTitle"] = QJsonValue::Null;
        QVERIFY(!SessionFile::decode(bytes(description))->customTitle);
        description["customTitle"] = "";
        QCOMPARE(SessionFile::decode(bytes(description))->customTitle, std::optional(QString("")));
    }

    void textRoundTrips_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString("");
        QTest::newRow("quotes and line breaks") << QString("\"\\/\b\f\n\r\t\v");
        QTest::newRow("NUL and controls")
            << QString(QChar(0)) + QChar(1) + QChar(0x1f) + QChar(0x7f) + QChar(0x85);
        QTest::newRow("separators") << QString("a") + QChar(0x2028) + QChar(0x2029) + "b";
        QTest::newRow("supplementary planes") << QString::fromUcs4(U"\U0001F600\U0010FFFD");
        QTest::newRow("lone surrogate") << QString("a") + QChar(0xd83d) + "b" + QChar(0xde00);
        QTest::newRow("looks like JSON") << QString("{\"id\": null}]}");
        QTest::newRow("long") << QString(3'000'000, 'x');
    }
    void textRoundTrips()
    {
        QFETCH(QString, text);
        SessionFile file;
        file.id = QUuid::createUuid();
        file.createdAt = file.updatedAt = t0;
        file.notes.append({QUuid::createUuid(), text, t0});
        file.turns.append({QUuid::createUuid(), text, text, t0});
        file.customTitle = text;
        const auto decoded = SessionFile::decode(file.encode());
        QVERIFY2(decoded, decoded ? "" : qPrintable(decoded.error()));
        QVERIFY(decoded->notes.first().text == text);
        QVERIFY(decoded->turns.first().prompt == text);
        QVERIFY(decoded->turns.first().response == text);
        QVERIFY(*decoded->customTitle == text);
    }

    void turnScreenshotRoundTrips()
    {
        using TurnScreenshot = CaptureSession::TurnScreenshot;
        SessionFile file;
        file.id = QUuid::createUuid();
        file.createdAt = file.updatedAt = t0;
        const std::optional<TurnScreenshot> links[] = {TurnScreenshot{3}, TurnScreenshot{},
                                                       std::nullopt};
        for (const auto &link : links)
            file.turns.append({QUuid::createUuid(), "p", "r", t0, link});
        const QJsonArray turns = QJsonDocument::fromJson(file.encode()).object()["turns"].toArray();
        QCOMPARE(turns[0]["screenshotIndex"], QJsonValue(3));
        QCOMPARE(turns[1]["screenshotIndex"], QJsonValue(QJsonValue::Null));
        QVERIFY(!turns[2].toObject().contains("screenshotIndex"));
        const auto decoded = SessionFile::decode(file.encode());
        QVERIFY2(decoded, decoded ? "" : qPrintable(decoded.error()));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(decoded->turns.at(i).screenshot, links[i]);
    }

    void versionsRoundTrip()
    {
        SessionFile file;
        file.id = QUuid::createUuid();
        file.createdAt = file.updatedAt = t0;
        const QDateTime day = QDateTime::fromString("2026-03-01T10:00:00Z", Qt::ISODate);
        CaptureSession::Turn turn{QUuid::createUuid(), {}, {}, {}};
        const QList<CaptureSession::TurnVersion> versions{
            {"p", "one", day, CaptureSession::TurnScreenshot{4}},
            {"q", "two", day.addSecs(1), CaptureSession::TurnScreenshot{}},
            {"r", "three", day.addSecs(2)}};
        for (qsizetype shown = 0; shown < versions.size(); ++shown) {
            turn.setVersions(versions, shown);
            file.turns.append(turn);
        }
        turn.setVersions({versions.first()}, 0);
        file.turns.append(turn);
        const QJsonArray turns = QJsonDocument::fromJson(file.encode()).object()["turns"].toArray();
        // A reader that does not know of versions sees the one on show.
        QCOMPARE(turns[1]["prompt"], "q");
        QCOMPARE(turns[1]["response"], "two");
        QCOMPARE(turns[1]["versions"]["shown"], 1);
        QCOMPARE(turns[1]["versions"]["others"][0]["screenshotIndex"], 4);
        QVERIFY(!turns[3].toObject().contains("versions"));
        const auto decoded = SessionFile::decode(file.encode());
        QVERIFY2(decoded, decoded ? "" : qPrintable(decoded.error()));
        QCOMPARE(decoded->turns, file.turns);
        for (qsizetype shown = 0; shown < versions.size(); ++shown)
            QCOMPARE(decoded->turns.at(shown).versions(), versions);
    }

    void invalidVersionsAreReported_data()
    {
        QTest::addColumn<QJsonValue>("versions");
        QTest::addColumn<bool>("isValid");
        const QJsonObject version{
            {"prompt", "p"}, {"response", "r"}, {"createdAt", "2026-03-01T14:05:09Z"}};
        const auto list = [&version](int count) {
            QJsonArray others;
            while (others.size() < count)
                others.append(version);
            return others;
        };
        const auto row = [](const char *name, const QJsonValue &versions, bool isValid = false) {
            QTest::newRow(name) << versions << isValid;
        };
        row("valid", QJsonObject{{"shown", 1}, {"others", list(1)}}, true);
        row("none", QJsonObject{{"shown", 0}, {"others", list(0)}}, true);
        row("the most", QJsonObject{{"shown", 99}, {"others", list(99)}}, true);
        row("too many", QJsonObject{{"shown", 0}, {"others", list(100)}});
        row("past the end", QJsonObject{{"shown", 2}, {"others", list(1)}});
        row("negative", QJsonObject{{"shown", -1}, {"others", list(1)}});
        row("fraction", QJsonObject{{"shown", 0.5}, {"others", list(1)}});
        row("huge", QJsonObject{{"shown", 1e300}, {"others", list(1)}});
        row("no position", QJsonObject{{"others", list(1)}});
        row("no list", QJsonObject{{"shown", 0}});
        row("list", list(1));
        row("null", QJsonValue());
        row("numbers", QJsonObject{{"shown", 0}, {"others", QJsonArray{7}}});
        for (const char *key : {"prompt", "response", "createdAt", "screenshotIndex"}) {
            QJsonObject wrong = version;
            wrong[QLatin1String(key)] = true;
            row(key, QJsonObject{{"shown", 0}, {"others", QJsonArray{wrong}}});
        }
    }
    void invalidVersionsAreReported()
    {
        QFETCH(QJsonValue, versions);
        QFETCH(bool, isValid);
        QJsonObject description = validDescription();
        QJsonObject turn = description["turns"][0].toObject();
        turn["versions"] = versions;
        description["turns"] = QJsonArray{turn};
        const auto file = SessionFile::decode(bytes(description));
        QCOMPARE(file.has_value(), isValid);

        // The list shows just the threads that can be opened.
        StoreFixture f;
        description["screenshots"] = QJsonArray();
        const QUuid id(description["id"].toString());
        QVERIFY(QDir().mkpath(f.folder(id)));
        writeFile(f.description(id), bytes(description));
        const auto summary = ThreadSummaryReader(*f.store.sessionsRoot()).read(id);
        QCOMPARE(summary.has_value(), isValid);
        if (isValid)
            QCOMPARE(summary->turns, 1);
        else
            QCOMPARE(summary.error(), file.error());
    }

    void indexRoundTrips()
    {
        for (const qint64 index : {qint64(0), qint64(-1), qint64(9007199254740993),
                                   std::numeric_limits<qint64>::max()}) {
            SessionFile file;
            file.id = QUuid::createUuid();
            file.createdAt = file.updatedAt = t0;
            file.screenshots.append({index, t0});
            const auto decoded = SessionFile::decode(file.encode());
            QVERIFY2(decoded, decoded ? "" : qPrintable(decoded.error()));
            QCOMPARE(decoded->screenshots.first().index, index);
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestSessionFile)
#include "test_session_file.moc"
