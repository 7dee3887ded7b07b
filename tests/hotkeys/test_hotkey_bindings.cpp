#include "base/UserDefaults.h"
#include "hotkeys/HotkeyBindings.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

using namespace quellora;

namespace {

const QString bindingsKey = QStringLiteral("hotkeyBindings");

VantiroConfig::Hotkeys fileBindings()
{
    return {.capture = QStringLiteral("cmd+1"),
            .clear = QStringLiteral("cmd+2"),
            .toggle = QStringLiteral("cmd+3"),
            .opacityUp = QStringLiteral("cmd+4"),
            .opacityDown = QStringLiteral("cmd+5"),
            .captureNoSend = QStringLiteral("cmd+6"),
            .newThread = QStringLiteral("cmd+7")};
}

} // namespace

class HotkeyBindingsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void namesTheActions();
    void findsActionsByExactKey();
    void readsAndReplacesOneField();
    void withoutOverridesKeepsTheFile();
    void appliesOneOverride();
    void appliesAllOverridesUnvalidated();
    void ignoresUnknownEntries();
    void storesAndClearsOverrides();
    void clearingTheLastOverrideKeepsAnEmptyDictionary();
};

void HotkeyBindingsTest::namesTheActions()
{
    const QList<QStringList> expected{
        {QStringLiteral("capture"), QStringLiteral("Capture screen and send to Claude"),
         QStringLiteral("Capture")},
        {QStringLiteral("clear"), QStringLiteral("Clear the response area"),
         QStringLiteral("Clear")},
        {QStringLiteral("toggle"), QStringLiteral("Toggle overlay visibility"),
         QStringLiteral("Toggle")},
        {QStringLiteral("opacity_up"), QStringLiteral("Increase opacity"),
         QStringLiteral("Opacity Up")},
        {QStringLiteral("opacity_down"), QStringLiteral("Decrease opacity"),
         QStringLiteral("Opacity Down")},
        {QStringLiteral("capture_no_send"), QStringLiteral("Capture (no send)"),
         QStringLiteral("Capture (No Send)")},
        {QStringLiteral("new_thread"), QStringLiteral("Start a new thread"),
         QStringLiteral("New Thread")},
    };
    QList<QStringList> actual;
    for (const HotkeyAction action : HotkeyActions::all)
        actual << QStringList{HotkeyActions::jsonKey(action), HotkeyActions::settingsTitle(action),
                              HotkeyActions::logName(action)};
    QCOMPARE(actual, expected);
}

void HotkeyBindingsTest::findsActionsByExactKey()
{
    QCOMPARE(HotkeyActions::fromJsonKey(QStringLiteral("opacity_up")), HotkeyAction::OpacityUp);
    QVERIFY(!HotkeyActions::fromJsonKey(QStringLiteral("opacity-up")));
    QVERIFY(!HotkeyActions::fromJsonKey(QStringLiteral("Opacity_up")));
    QVERIFY(!HotkeyActions::fromJsonKey(QString()));
}

void HotkeyBindingsTest::readsAndReplacesOneField()
{
    const VantiroConfig::Hotkeys before = fileBindings();
    QStringList combos;
    for (const HotkeyAction action : HotkeyActions::all)
        combos << HotkeyActions::combo(action, before);
    QCOMPARE(combos.join(u' '), QStringLiteral("cmd+1 cmd+2 cmd+3 cmd+4 cmd+5 cmd+6 cmd+7"));

    for (const HotkeyAction changed : HotkeyActions::all) {
        const auto after = HotkeyActions::updating(changed, QStringLiteral("alt+q"), before);
        for (const HotkeyAction action : HotkeyActions::all)
            QCOMPARE(HotkeyActions::combo(action, after),
                     action == changed ? QStringLiteral("alt+q")
                                       : HotkeyActions::combo(action, before));
    }
    QCOMPARE(before, fileBindings());
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
    VantiroConfig::Hotkeys expected = fileBindings();
    expected.clear = QStringLiteral("alt+k");
    QCOMPARE(HotkeyBindings::loadEffective(fileBindings(), defaults), expected);
}

void HotkeyBindingsTest::appliesAllOverridesUnvalidated()
{
    JsonUserDefaults defaults;
    QMap<QString, QString> stored;
    for (const HotkeyAction action : HotkeyActions::all)
        stored.insert(HotkeyActions::jsonKey(action),
                      QStringLiteral("nonsense ") + HotkeyActions::jsonKey(action));
    defaults.setStringDictionary(bindingsKey, stored);
    const auto effective = HotkeyBindings::loadEffective(fileBindings(), defaults);
    for (const HotkeyAction action : HotkeyActions::all)
        QCOMPARE(HotkeyActions::combo(action, effective), stored[HotkeyActions::jsonKey(action)]);
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
