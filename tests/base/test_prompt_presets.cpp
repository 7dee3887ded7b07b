#include "base/PromptPresets.h"
#include "base/UserDefaults.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

namespace {

const QString key = QStringLiteral("promptPresets");

QStringList names(const PromptPresets &presets)
{
    QStringList names;
    for (const PromptPreset &preset : presets.list())
        names << preset.name;
    return names;
}

} // namespace

class PromptPresetsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void builtInOnesComeFirst()
    {
        JsonUserDefaults defaults;
        const PromptPresets presets(defaults);
        QCOMPARE(names(presets), (QStringList{"Explain", "Fix the error", "Translate"}));
        for (const PromptPreset &preset : presets.list())
            QVERIFY(presets.problem(preset.name, preset.text, preset.id).isEmpty());
        // Reading stores nothing.
        QVERIFY(!defaults.stringValue(key));
    }

    void addsChangesMovesAndRemoves()
    {
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        QSignalSpy changed(&presets, &PromptPresets::changed);
        const QString id = presets.add("  Sum\n up ", "  Line one\nline two\n");
        QVERIFY(!id.isEmpty());
        QCOMPARE(presets.find(id), (PromptPreset{id, "Sum up", "Line one\nline two"}));
        QCOMPARE(changed.size(), 1);
        QVERIFY(presets.change(id, "Shorten", "Make it short."));
        QCOMPARE(presets.find(id), (PromptPreset{id, "Shorten", "Make it short."}));
        presets.move(id, -2);
        QCOMPARE(names(presets), (QStringList{"Explain", "Shorten", "Fix the error", "Translate"}));
        presets.move(id, 99);
        QCOMPARE(names(presets).last(), "Shorten");
        presets.move(id, -99);
        QCOMPARE(names(presets).first(), "Shorten");
        presets.remove("explain");
        QCOMPARE(names(presets), (QStringList{"Shorten", "Fix the error", "Translate"}));
        QCOMPARE(changed.size(), 6);
        // Another instance and a later run have the same.
        QCOMPARE(PromptPresets(defaults).list(), presets.list());
    }

    void whatChangesNothingIsNotStored()
    {
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        QSignalSpy changed(&presets, &PromptPresets::changed);
        presets.remove("unknown");
        presets.move("unknown", 1);
        presets.move("explain", -1);
        presets.move("translate", 1);
        QVERIFY(!presets.change("unknown", "A", "B"));
        QVERIFY(!presets.change("explain", " ", "B"));
        QVERIFY(presets.add("", "B").isEmpty());
        QVERIFY(!defaults.stringValue(key));
        QCOMPARE(changed.size(), 0);
    }

    void allCanBeRemoved()
    {
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        for (const PromptPreset &preset : PromptPresets::builtIn())
            presets.remove(preset.id);
        QVERIFY(presets.list().isEmpty());
        QVERIFY(PromptPresets(defaults).list().isEmpty());
        // A preference that is removed brings them back.
        defaults.remove(key);
        QCOMPARE(presets.list(), PromptPresets::builtIn());
    }

    void problems_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("problem");
        QTest::newRow("fine") << "A"
                              << "B"
                              << "";
        QTest::newRow("no name") << " \n"
                                 << "B"
                                 << "The prompt needs a name.";
        QTest::newRow("no text") << "A"
                                 << " \t\n"
                                 << "The prompt needs a text.";
        QTest::newRow("longest name") << QString(40, 'a') << "B"
                                      << "";
        QTest::newRow("long name") << QString(41, 'a') << "B"
                                   << "The name can have at most 40 characters.";
        QTest::newRow("longest text") << "A" << QString(4000, 'b') << "";
        QTest::newRow("long text")
            << "A" << QString(4001, 'b') << "The text can have at most 4000 characters.";
        QTest::newRow("taken") << "  eXplain "
                               << "B"
                               << "Another prompt has this name.";
    }
    void problems()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        QFETCH(QString, problem);
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        QCOMPARE(presets.problem(name, text), problem);
        QCOMPARE(presets.add(name, text).isEmpty(), !problem.isEmpty());
    }

    void aPromptMayKeepItsName()
    {
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        QVERIFY(presets.change("explain", "EXPLAIN", "Why?"));
        QCOMPARE(presets.find("explain"), (PromptPreset{"explain", "EXPLAIN", "Why?"}));
    }

    void theListIsBounded()
    {
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        for (int i = 0; i < 40; ++i)
            presets.add(QString::number(i), "text");
        QCOMPARE(presets.list().size(), PromptPresets::maximumCount);
        QVERIFY(presets.isFull());
        QVERIFY(presets.add("one more", "text").isEmpty());
        presets.remove("explain");
        QVERIFY(!presets.add("one more", "text").isEmpty());
    }

    void hostileStoredValues_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QStringList>("names");
        const QStringList builtIn{"Explain", "Fix the error", "Translate"};
        QTest::newRow("empty") << "" << builtIn;
        QTest::newRow("no JSON") << "[{" << builtIn;
        QTest::newRow("an object") << R"({"id":"a"})" << builtIn;
        QTest::newRow("empty list") << "[]" << QStringList();
        QTest::newRow("no objects") << R"([1,null,"x",[],{}])" << QStringList();
        QTest::newRow("wrong types")
            << R"([{"id":1,"name":"A","text":"B"},{"id":"a","name":["A"],"text":"B"}])"
            << QStringList();
        QTest::newRow("ids") << R"([{"id":"../x","name":"A","text":"B"},
                                    {"id":"A","name":"A","text":"B"},
                                    {"id":"","name":"A","text":"B"},
                                    {"id":"a\n","name":"A","text":"B"},
                                    {"id":"good-1","name":"Good","text":"B"}])"
                             << QStringList{"Good"};
        QTest::newRow("repeated id") << R"([{"id":"a","name":"First","text":"B"},
                                            {"id":"a","name":"Second","text":"B"}])"
                                     << QStringList{"First"};
        QTest::newRow("blank") << R"([{"id":"a","name":" ","text":"B"},
                                      {"id":"b","name":"A","text":"\u0000 "}])"
                               << QStringList();
        QTest::newRow("name in lines")
            << R"([{"id":"a","name":"One\n\ttwo","text":"B"}])" << QStringList{"One two"};
        QTest::newRow("unknown fields")
            << R"([{"id":"a","name":"A","text":"B","colour":1}])" << QStringList{"A"};
        QTest::newRow("long name")
            << QStringLiteral(R"([{"id":"a","name":"%1","text":"B"}])").arg(QString(41, 'a'))
            << QStringList();
        QTest::newRow("long text")
            << QStringLiteral(R"([{"id":"a","name":"A","text":"%1"}])").arg(QString(4001, 'b'))
            << QStringList();
    }
    void hostileStoredValues()
    {
        QFETCH(QString, stored);
        QFETCH(QStringList, names);
        JsonUserDefaults defaults;
        defaults.setString(key, stored);
        QCOMPARE(::names(PromptPresets(defaults)), names);
    }

    void storedListsAreBounded()
    {
        QJsonArray entries;
        for (int i = 0; i < 1000; ++i)
            entries << QJsonObject{
                {"id", QString::number(i)}, {"name", QString::number(i)}, {"text", "B"}};
        JsonUserDefaults defaults;
        PromptPresets presets(defaults);
        QSignalSpy changed(&presets, &PromptPresets::changed);
        defaults.setString(key, QString::fromUtf8(QJsonDocument(entries).toJson()));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(presets.list().size(), PromptPresets::maximumCount);
        // A value of another type is none.
        defaults.setBool(key, true);
        QCOMPARE(presets.list(), PromptPresets::builtIn());
        QCOMPARE(changed.size(), 2);
    }
};

QUELLORA_TEST(QCoreApplication, PromptPresetsTest)
#include "test_prompt_presets.moc"
