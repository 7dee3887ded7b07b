#include "platform/contract/UserDefaultsContract.h"

namespace quellora {
namespace {

// Keys that the program itself never uses, because the store may be the user's.
const QString a = QStringLiteral("quelloraContractTestA");
const QString b = QStringLiteral("quelloraContractTestB");
using Dictionary = QMap<QString, QString>;

} // namespace

void UserDefaultsContract::init()
{
    makePlatform();
    m_defaults = platform().makeUserDefaults();
    QVERIFY(m_defaults);
    clear();
}

void UserDefaultsContract::cleanup()
{
    clear();
    m_defaults.reset();
    destroyPlatform();
}

void UserDefaultsContract::clear()
{
    m_defaults->remove(a);
    m_defaults->remove(b);
    m_defaults->flush();
}

void UserDefaultsContract::valuesAreAbsentInitially()
{
    QCOMPARE(defaults().boolValue(a), std::nullopt);
    QCOMPARE(defaults().stringValue(a), std::nullopt);
    QCOMPARE(defaults().stringDictionary(a), std::nullopt);
}

void UserDefaultsContract::valuesRoundTrip()
{
    for (const bool value : {true, false}) {
        defaults().setBool(a, value);
        QCOMPARE(defaults().boolValue(a), std::optional(value));
    }
    for (const QString &value : {QStringLiteral("text"), QString(QLatin1String("")),
                                 QStringLiteral("Zeile\nzwei \t „ü“ 日本 🙂 \"\\'")}) {
        defaults().setString(b, value);
        QCOMPARE(defaults().stringValue(b), std::optional(value));
    }
}

void UserDefaultsContract::valueOfOtherTypeIsAbsent()
{
    defaults().setBool(a, true);
    QCOMPARE(defaults().stringValue(a), std::nullopt);
    QCOMPARE(defaults().stringDictionary(a), std::nullopt);
    for (const QString &value : {QStringLiteral("true"), QStringLiteral("YES"), QStringLiteral("1"),
                                 QStringLiteral("{}")}) {
        defaults().setString(a, value);
        QCOMPARE(defaults().boolValue(a), std::nullopt);
        QCOMPARE(defaults().stringDictionary(a), std::nullopt);
    }
    defaults().setStringDictionary(a, {{b, b}});
    QCOMPARE(defaults().boolValue(a), std::nullopt);
    QCOMPARE(defaults().stringValue(a), std::nullopt);
}

void UserDefaultsContract::valueReplacesOtherType()
{
    defaults().setBool(a, true);
    defaults().setString(a, QStringLiteral("text"));
    QCOMPARE(defaults().stringValue(a), std::optional(QStringLiteral("text")));
    defaults().setBool(a, false);
    QCOMPARE(defaults().boolValue(a), std::optional(false));
}

void UserDefaultsContract::dictionariesPreserveUnicode()
{
    const Dictionary value{{QStringLiteral("capture"), QStringLiteral("ctrl+alt+]")},
                           {QStringLiteral("ü.日本/🙂"), QStringLiteral("„Wert“ \"\\\n")},
                           {QStringLiteral("leer"), QString(QLatin1String(""))}};
    defaults().setStringDictionary(a, value);
    QCOMPARE(defaults().stringDictionary(a), std::optional(value));
    defaults().setStringDictionary(a, {});
    QCOMPARE(defaults().stringDictionary(a), std::optional(Dictionary()));
}

void UserDefaultsContract::changesAreSignalled()
{
    QStringList changedKeys;
    QObject context;
    connect(&defaults(), &UserDefaults::changed, &context, [&](const QString &key) {
        changedKeys << key;
        // The signal is emitted after the value was stored.
        if (changedKeys.size() == 1)
            QCOMPARE(defaults().stringValue(a), std::optional(QStringLiteral("one")));
    });
    defaults().setString(a, QStringLiteral("one"));
    defaults().setString(a, QStringLiteral("two"));
    defaults().setBool(b, false);
    defaults().setStringDictionary(b, {{a, a}});
    defaults().remove(a);
    QCOMPARE(changedKeys, (QStringList{a, a, b, b, a}));
}

void UserDefaultsContract::unchangedValuesAreNotSignalled()
{
    defaults().setString(a, QStringLiteral("one"));
    defaults().setStringDictionary(b, {{a, a}});
    QSignalSpy changedKeys(&defaults(), &UserDefaults::changed);
    defaults().setString(a, QStringLiteral("one"));
    defaults().setStringDictionary(b, {{a, a}});
    defaults().remove(QStringLiteral("quelloraContractTestNever"));
    QCOMPARE(changedKeys.size(), 0);
    defaults().setBool(a, true);
    defaults().setBool(a, true);
    QCOMPARE(changedKeys.size(), 1);
}

void UserDefaultsContract::removedValueIsAbsent()
{
    defaults().setString(a, QStringLiteral("text"));
    defaults().setBool(b, true);
    defaults().remove(a);
    QCOMPARE(defaults().stringValue(a), std::nullopt);
    QCOMPARE(defaults().boolValue(b), std::optional(true));
}

void UserDefaultsContract::secondInstanceReadsFlushedValues()
{
    const Dictionary value{{QStringLiteral("ü"), QStringLiteral("日本")}};
    defaults().setBool(a, true);
    defaults().setStringDictionary(b, value);
    defaults().flush();
    QCOMPARE(platform().makeUserDefaults()->boolValue(a), std::optional(true));
    QCOMPARE(platform().makeUserDefaults()->stringDictionary(b), std::optional(value));
    defaults().remove(a);
    defaults().flush();
    const auto second = platform().makeUserDefaults();
    QCOMPARE(second->boolValue(a), std::nullopt);
    QCOMPARE(second->stringDictionary(b), std::optional(value));
}

} // namespace quellora
