#include "base/Log.h"
#include "platform/macos/PreferencesUserDefaults.h"
#include "support/TestProgram.h"

#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

struct StoreData
{
    QVariantMap values;
    int writes = 0;
    int synchronizations = 0;
    bool synchronizeSucceeds = true;
};

class FakeStore : public PreferenceStore
{
public:
    explicit FakeStore(StoreData &data) : m_data(data) {}
    QVariant value(const QString &key) const override { return m_data.values.value(key); }
    void setValue(const QString &key, const QVariant &value) override
    {
        m_data.values.insert(key, value);
        ++m_data.writes;
    }
    void removeValue(const QString &key) override
    {
        m_data.values.remove(key);
        ++m_data.writes;
    }
    bool synchronize() override
    {
        ++m_data.synchronizations;
        return m_data.synchronizeSucceeds;
    }

private:
    StoreData &m_data;
};

} // namespace

class TestMacUserDefaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_data = {};
        m_defaults = std::make_unique<PreferencesUserDefaults>(std::make_unique<FakeStore>(m_data));
    }
    void cleanup()
    {
        m_defaults.reset();
        Log::setSinkForTesting({});
    }

    void valuesRoundTrip()
    {
        m_defaults->setBool(QStringLiteral("bool"), false);
        m_defaults->setString(QStringLiteral("string"), QStringLiteral("blue"));
        const QMap<QString, QString> bindings{{"capture", "ctrl+c"}};
        m_defaults->setStringDictionary(QStringLiteral("dictionary"), bindings);
        QCOMPARE(m_defaults->boolValue(QStringLiteral("bool")), std::optional(false));
        QCOMPARE(m_defaults->stringValue(QStringLiteral("string")),
                 std::optional(QStringLiteral("blue")));
        QCOMPARE(m_defaults->stringDictionary(QStringLiteral("dictionary")),
                 std::optional(bindings));
        QCOMPARE(m_data.values.value(QStringLiteral("dictionary")).toMap().size(), 1);
    }

    void valueOfOtherTypeIsAbsent()
    {
        m_data.values = {{"number", 1},
                         {"string", "true"},
                         {"bool", true},
                         {"other", QVariant::fromValue(nullptr)}};
        for (const QString &key : {QStringLiteral("number"), QStringLiteral("string"),
                                   QStringLiteral("other"), QStringLiteral("missing")})
            QCOMPARE(m_defaults->boolValue(key), std::nullopt);
        for (const QString &key : {QStringLiteral("number"), QStringLiteral("bool"),
                                   QStringLiteral("other"), QStringLiteral("missing")})
            QCOMPARE(m_defaults->stringValue(key), std::nullopt);
        for (const QString &key : {QStringLiteral("number"), QStringLiteral("string"),
                                   QStringLiteral("bool"), QStringLiteral("missing")})
            QCOMPARE(m_defaults->stringDictionary(key), std::nullopt);
    }

    void dictionaryOmitsNonStrings()
    {
        m_data.values = {{"keys", QVariantMap{{"a", "x"}, {"b", true}, {"c", 3}, {"d", ""}}}};
        QCOMPARE(m_defaults->stringDictionary(QStringLiteral("keys")),
                 std::optional(QMap<QString, QString>{{"a", "x"}, {"d", ""}}));
    }

    void signalsChangesAfterStoring()
    {
        QSignalSpy changed(m_defaults.get(), &UserDefaults::changed);
        std::optional<bool> seen;
        connect(m_defaults.get(), &UserDefaults::changed, this,
                [&](const QString &key) { seen = m_defaults->boolValue(key); });
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(seen, std::optional(true));
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_data.writes, 1);
        m_defaults->setBool(QStringLiteral("key"), false);
        m_defaults->remove(QStringLiteral("key"));
        m_defaults->remove(QStringLiteral("key"));
        QCOMPARE(changed.size(), 3);
        QCOMPARE(seen, std::nullopt);
    }

    void valueReplacesOtherType()
    {
        QSignalSpy changed(m_defaults.get(), &UserDefaults::changed);
        m_data.values = {{"key", 1}};
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_defaults->boolValue(QStringLiteral("key")), std::optional(true));
        m_defaults->setString(QStringLiteral("key"), QStringLiteral("true"));
        QCOMPARE(changed.size(), 2);
        QCOMPARE(m_defaults->stringValue(QStringLiteral("key")),
                 std::optional(QStringLiteral("true")));
    }

    void emptyStringIsPresent()
    {
        m_defaults->setString(QStringLiteral("key"), QString());
        QCOMPARE(m_defaults->stringValue(QStringLiteral("key")), std::optional(QString("")));
        m_defaults->setStringDictionary(QStringLiteral("keys"), {});
        QVERIFY(m_defaults->stringDictionary(QStringLiteral("keys")).has_value());
    }

    void flushLogsFailure()
    {
        QStringList lines;
        Log::setSinkForTesting([&lines](const QString &line) { lines << line; });
        m_defaults->flush();
        QCOMPARE(m_data.synchronizations, 1);
        QCOMPARE(lines, QStringList());
        m_data.synchronizeSucceeds = false;
        m_defaults->flush();
        QCOMPARE(lines,
                 QStringList{"[UserDefaults] ERROR: The system did not store the preferences"});
        m_data.synchronizeSucceeds = true;
        m_defaults.reset();
        QCOMPARE(m_data.synchronizations, 3);
    }

private:
    StoreData m_data;
    std::unique_ptr<PreferencesUserDefaults> m_defaults;
};

QUELLORA_TEST(void, TestMacUserDefaults)
#include "test_preferences_user_defaults.moc"
