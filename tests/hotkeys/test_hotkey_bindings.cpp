#include "base/UserDefaults.h"
#include "hotkeys/HotkeyBindings.h"
#include "hotkeys/HotkeyCombo.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSet>
#include <QtTest>

using namespace quellora;

namespace {

const QString bindingsKey = QStringLiteral("hotkeyBindings");

HotkeyCombos fileBindings()
{
    HotkeyCombos combos;
    char letter = 'a';
    for (const HotkeyActionInfo &row : hotkeyActions)
        combos[row.action] = QStringLiteral("cmd+") + QLatin1Char(letter++);
    return combos;
}

} // namespace

class HotkeyBindingsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void namesTheActions();
    void rowsAreDistinctAndComplete();
    void titlesNameWhoAnswers();
    void configKeysFollowTheTable();
    void combosAreReplacedByExactKey();
    void withoutOverridesKeepsTheFile();
    void appliesOneOverride();
    void anEmptyOverrideUnsets();
    void appliesAllOverridesUnvalidated();
    void ignoresUnknownEntries();
    void storesAndClearsOverrides();
    void clearingTheLastOverrideKeepsAnEmptyDictionary();
};

void HotkeyBindingsTest::namesTheActions()
{
    const QList<QStringList> expected{
        {"capture", "Capture screen and send to Claude", "Capture", "ctrl+alt+cmd+c", "required"},
        {"clear", "Clear the response area", "Clear", "ctrl+alt+cmd+x", "required"},
        {"toggle", "Toggle overlay visibility", "Toggle", "ctrl+alt+cmd+t", "required"},
        {"opacity_up", "Increase opacity", "Opacity Up", "ctrl+alt+cmd+]", "required"},
        {"opacity_down", "Decrease opacity", "Opacity Down", "ctrl+alt+cmd+[", "required"},
        {"capture_no_send", "Capture (no send)", "Capture (No Send)", "ctrl+alt+cmd+shift+c", ""},
        {"new_thread", "Start a new thread", "New Thread", "cmd+n", ""},
        {"capture_window", "Capture the window in front and send", "Capture Window", "", ""},
        {"capture_region", "Capture a region and send", "Capture Region", "", ""},
        {"capture_last_region", "Capture the last region and send", "Capture Last Region", "", ""},
        {"toggle_clicks", "Let clicks reach the answer", "Toggle Clicks", "", ""},
        {"retry", "Ask the last question again", "Retry", "", ""},
    };
    QList<QStringList> actual;
    for (const HotkeyActionInfo &row : hotkeyActions)
        actual << QStringList{row.jsonKey, row.title, row.logName, row.defaultCombo,
                              row.isRequired ? "required" : ""};
    QCOMPARE(actual, expected);
}

void HotkeyBindingsTest::rowsAreDistinctAndComplete()
{
    QSet<QString> keys;
    QSet<QString> titles;
    QSet<QString> logNames;
    QSet<int> combos;
    for (const HotkeyActionInfo &row : hotkeyActions) {
        QCOMPARE(&hotkeyAction(row.action), &row);
        keys << row.jsonKey;
        titles << row.title;
        logNames << row.logName;
        if (QByteArrayView(row.defaultCombo).isEmpty()) {
            QVERIFY2(!row.isRequired, row.jsonKey);
            continue;
        }
        const auto combo = HotkeyCombo::parse(row.defaultCombo);
        QVERIFY2(combo, row.jsonKey);
        QVERIFY2(!combos.contains(combo->toCombined()), row.jsonKey);
        combos << combo->toCombined();
    }
    const auto count = qsizetype(hotkeyActions.size());
    for (const QSet<QString> &texts : {keys, titles, logNames}) {
        QCOMPARE(texts.size(), count);
        QVERIFY(!texts.contains(QString()));
    }
}

void HotkeyBindingsTest::titlesNameWhoAnswers()
{
    QCOMPARE(hotkeyAction(HotkeyAction::Capture).titleNaming("Offline reader"),
             "Capture screen and send to Offline reader");
    QCOMPARE(hotkeyAction(HotkeyAction::Clear).titleNaming("Offline reader"),
             "Clear the response area");
}

void HotkeyBindingsTest::configKeysFollowTheTable()
{
    QString error;
    const auto config = VantiroConfig::decode(
        R"({"hotkeys":{"capture":"cmd+1","clear":"cmd+2","toggle":"cmd+3","opacity_up":"cmd+4",
            "opacity_down":"","new_thread":"cmd+7"},
            "overlay":{"x":1,"y":2,"width":700,"height":500,"default_opacity":0.5}})",
        hotkeyConfigKeys(), &error);
    QVERIFY2(config, qPrintable(error));
    HotkeyCombos expected;
    expected.replace({{"capture", "cmd+1"},
                      {"clear", "cmd+2"},
                      {"toggle", "cmd+3"},
                      {"opacity_up", "cmd+4"},
                      {"opacity_down", ""},
                      {"new_thread", "cmd+7"}});
    QCOMPARE(HotkeyCombos(config->hotkeys), expected);
    QCOMPARE(expected[HotkeyAction::CaptureNoSend], "ctrl+alt+cmd+shift+c");
    QVERIFY(!VantiroConfig::decode(R"({"hotkeys":{},"overlay":{}})", hotkeyConfigKeys(), &error));
    QCOMPARE(error, "the key \"hotkeys.capture\" is missing");
}

void HotkeyBindingsTest::combosAreReplacedByExactKey()
{
    HotkeyCombos combos;
    combos.replace({{"opacity_up", "alt+u"}, {"opacity-up", "alt+v"}, {"Clear", "alt+k"}});
    HotkeyCombos expected;
    expected[HotkeyAction::OpacityUp] = "alt+u";
    QCOMPARE(combos, expected);
}

void HotkeyBindingsTest::withoutOverridesKeepsTheFile()
{
    JsonUserDefaults defaults;
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), fileBindings());
    defaults.setString(bindingsKey, QStringLiteral("not a dictionary"));
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), fileBindings());
}

void HotkeyBindingsTest::appliesOneOverride()
{
    JsonUserDefaults defaults;
    defaults.setStringDictionary(bindingsKey, {{QStringLiteral("clear"), QStringLiteral("alt+k")}});
    HotkeyCombos expected = fileBindings();
    expected[HotkeyAction::Clear] = QStringLiteral("alt+k");
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), expected);
}

void HotkeyBindingsTest::anEmptyOverrideUnsets()
{
    JsonUserDefaults defaults;
    HotkeyBindings::setOverride(QString(), HotkeyAction::Clear, defaults);
    HotkeyCombos expected = fileBindings();
    expected[HotkeyAction::Clear].clear();
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), expected);
    HotkeyBindings::clearOverride(HotkeyAction::Clear, defaults);
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), fileBindings());
}

void HotkeyBindingsTest::appliesAllOverridesUnvalidated()
{
    JsonUserDefaults defaults;
    QMap<QString, QString> stored;
    for (const HotkeyActionInfo &row : hotkeyActions)
        stored.insert(row.jsonKey, QStringLiteral("nonsense ") + row.jsonKey);
    defaults.setStringDictionary(bindingsKey, stored);
    const auto effective = HotkeyBindings::loadEffective(fileBindings(), defaults);
    for (const HotkeyActionInfo &row : hotkeyActions)
        QCOMPARE(effective[row.action], stored[row.jsonKey]);
}

void HotkeyBindingsTest::ignoresUnknownEntries()
{
    JsonUserDefaults defaults;
    defaults.setStringDictionary(bindingsKey,
                                 {{QStringLiteral("Clear"), QStringLiteral("alt+k")},
                                  {QStringLiteral("opacity-up"), QStringLiteral("alt+u")}});
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), fileBindings());
}

void HotkeyBindingsTest::storesAndClearsOverrides()
{
    JsonUserDefaults defaults;
    HotkeyBindings::setOverride(QStringLiteral("alt+k"), HotkeyAction::Clear, defaults);
    HotkeyBindings::setOverride(QStringLiteral("alt+u"), HotkeyAction::OpacityUp, defaults);
    QCOMPARE(defaults.stringDictionary(bindingsKey),
             (QMap<QString, QString>{{QStringLiteral("clear"), QStringLiteral("alt+k")},
                                     {QStringLiteral("opacity_up"), QStringLiteral("alt+u")}}));
    HotkeyBindings::setOverride(QStringLiteral("alt+j"), HotkeyAction::Clear, defaults);
    HotkeyBindings::clearOverride(HotkeyAction::OpacityUp, defaults);
    QCOMPARE(defaults.stringDictionary(bindingsKey),
             (QMap<QString, QString>{{QStringLiteral("clear"), QStringLiteral("alt+j")}}));
}

void HotkeyBindingsTest::clearingTheLastOverrideKeepsAnEmptyDictionary()
{
    JsonUserDefaults defaults;
    HotkeyBindings::clearOverride(HotkeyAction::Toggle, defaults);
    QCOMPARE(defaults.stringDictionary(bindingsKey), (QMap<QString, QString>{}));
    HotkeyBindings::setOverride(QStringLiteral("alt+k"), HotkeyAction::Clear, defaults);
    HotkeyBindings::clearOverride(HotkeyAction::Clear, defaults);
    QCOMPARE(defaults.stringDictionary(bindingsKey), (QMap<QString, QString>{}));
}

QUELLORA_TEST(QCoreApplication, HotkeyBindingsTest)
#include "test_hotkey_bindings.moc"
