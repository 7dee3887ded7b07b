#include "base/Log.h"
#include "platform/macos/PreferencesUserDefaults.h"
#include "support/TestProgram.h"

#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

struct Stored
{
    QVariantMap values;
    int writes = 0;
    int synchronizations = 0;
    bool canStore = true;
};

class FakeStore : public PreferenceStore
{
public:
    explicit FakeStore(Stored &stored) : m_stored(stored) {}
    QVariant value(const QString &key) const override { return m_stored.values.value(key); }
    void setValue(const QString &key, const QVariant &value) override
    {
        m_stored.values.insert(key, value);
        ++m_stored.writes;
    }
    void removeValue(const QString &key) override
    {
        m_stored.values.remove(key);
        ++m_stored.writes;
    }
    bool synchronize() override
    {
        ++m_stored.synchronizations;
        return m_stored.canStore;
    }

private:
    Stored &m_stored;
};

} // namespace

class TestMacUserDefaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_stored = {};
        m_defaults =
            std::make_unique<PreferencesUserDefaults>(std::make_unique<FakeStore>(m_stored));
    }
    void cleanup()
    {
        m_defaults.reset();
        Log::setSinkForTesting({});
    }

    void keepsWhatIsSet()
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
        QCOMPARE(m_stored.values.value(QStringLiteral("dictionary")).toMap().size(), 1);
    }

    void otherTypesCountAsAbsent()
    {
        m_stored.values = {{"number", 1},
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

    void dictionariesLeaveOutWhatIsNoString()
    {
        m_stored.values = {{"keys", QVariantMap{{"a", "x"}, {"b", true}, {"c", 3}, {"d", ""}}}};
        QCOMPARE(m_defaults->stringDictionary(QStringLiteral("keys")),
                 std::optional(QMap<QString, QString>{{"a", "x"}, {"d", ""}}));
    }

    void tellsOfChangesAfterStoring()
    {
        QSignalSpy changed(m_defaults.get(), &UserDefaults::changed);
        std::optional<bool> seen;
        connect(m_defaults.get(), &UserDefaults::changed, this,
                [&](const QString &key) { seen = m_defaults->boolValue(key); });
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(seen, std::optional(true));
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_stored.writes, 1);
        m_defaults->setBool(QStringLiteral("key"), false);
        m_defaults->remove(QStringLiteral("key"));
        m_defaults->remove(QStringLiteral("key"));
        QCOMPARE(changed.size(), 3);
        QCOMPARE(seen, std::nullopt);
    }

    void aValueOfAnotherTypeIsReplaced()
    {
        QSignalSpy changed(m_defaults.get(), &UserDefaults::changed);
        m_stored.values = {{"key", 1}};
        m_defaults->setBool(QStringLiteral("key"), true);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_defaults->boolValue(QStringLiteral("key")), std::optional(true));
        m_defaults->setString(QStringLiteral("key"), QStringLiteral("true"));
        QCOMPARE(changed.size(), 2);
        QCOMPARE(m_defaults->stringValue(QStringLiteral("key")),
                 std::optional(QStringLiteral("true")));
    }

    void emptyTextsAreThere()
    {
        m_defaults->setString(QStringLiteral("key"), QString());
        QCOMPARE(m_defaults->stringValue(QStringLiteral("key")), std::optional(QString("")));
        m_defaults->setStringDictionary(QStringLiteral("keys"), {});
        QVERIFY(m_defaults->stringDictionary(QStringLiteral("keys")).has_value());
    }

    void flushesAndLogsAFailure()
    {
        QStringList lines;
        Log::setSinkForTesting([&lines](const QString &line) { lines << line; });
        m_defaults->flush();
        QCOMPARE(m_stored.synchronizations, 1);
        QCOMPARE(lines, QStringList());
        m_stored.canStore = false;
        m_defaults->flush();
        QCOMPARE(lines,
                 QStringList{"[UserDefaults] ERROR: The system did not store the preferences"});
        m_stored.canStore = true;
        m_defaults.reset();
        QCOMPARE(m_stored.synchronizations, 3);
    }

private:
    Stored m_stored;
    std::unique_ptr<PreferencesUserDefaults> m_defaults;
};

QUELLORA_TEST(void, TestMacUserDefaults)
#include "test_preferences_user_defaults.moc"
