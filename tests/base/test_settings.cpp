#include "base/Settings.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

namespace {

using Text = std::optional<QString>;

/// A value as the store holds it: bool, QString, or nothing.
void put(UserDefaults &defaults, const QString &key, const QVariant &value)
{
    if (!value.isValid())
        defaults.remove(key);
    else if (value.typeId() == QMetaType::Bool)
        defaults.setBool(key, value.toBool());
    else
        defaults.setString(key, value.toString());
}

QVariant held(const JsonUserDefaults &defaults, const QString &key)
{
    const QJsonValue value = defaults.values().value(key);
    return value.isUndefined() ? QVariant() : value.toVariant();
}

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    /// Every property with its storage key, its default, and two further values beside what is
    /// stored for them.
    void everySetting_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("fallback");
        QTest::addColumn<QVariant>("first");
        QTest::addColumn<QVariant>("firstStored");
        QTest::addColumn<QVariant>("second");
        QTest::addColumn<QVariant>("secondStored");
        const auto add = [](const char *name, const auto &key, const auto &fallback,
                            const auto &first, const QVariant &firstStored, const auto &second,
                            const QVariant &secondStored) {
            QTest::newRow(name) << QString(key) << QVariant::fromValue(fallback)
                                << QVariant::fromValue(first) << firstStored
                                << QVariant::fromValue(second) << secondStored;
        };
        for (const char *name : {"keepAIHistoryEnabled", "startNewThreadPerSendEnabled",
                                 "dontClearPromptAfterSendEnabled", "hasLaunchedBefore",
                                 "captureAllScreens", "notifyWhenAnswerReady"})
            add(name, name, false, true, true, false, false);
        add("selectedModelId", "selectedModelId", QString(), QString("m1"), "m1", QString(), "");
        using Appearance = Settings::Appearance;
        add("appearance", "com.quellora.app.appearance", Appearance::System, Appearance::Light,
            "light", Appearance::System, "system");
        add("responseTextColorHex", "responseTextColorHex", Text(), Text("#8899aa"), "#8899aa",
            Text(), QVariant());
        add("userPrompt", "userPrompt", Text(), Text("Why?"), "Why?", Text(""), "");
    }
    void everySetting()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, fallback);
        QFETCH(QVariant, first);
        QFETCH(QVariant, firstStored);
        QFETCH(QVariant, second);
        QFETCH(QVariant, secondStored);
        JsonUserDefaults defaults;
        Settings settings(defaults);
        const QMetaObject &type = Settings::staticMetaObject;
        const QMetaProperty property = type.property(type.indexOfProperty(QTest::currentDataTag()));
        QVERIFY(property.isWritable());
        QSignalSpy changed(&settings, property.notifySignal());

        QCOMPARE(property.read(&settings), fallback);
        QVERIFY(property.write(&settings, first));
        QCOMPARE(property.read(&settings), first);
        QCOMPARE(held(defaults, key), firstStored);
        QCOMPARE(changed.size(), 1);
        property.write(&settings, first);
        QCOMPARE(changed.size(), 1);
        property.write(&settings, second);
        QCOMPARE(property.read(&settings), second);
        QCOMPARE(held(defaults, key), secondStored);
        QCOMPARE(changed.size(), 2);

        // From outside.
        put(defaults, key, firstStored);
        QCOMPARE(property.read(&settings), first);
        QCOMPARE(changed.size(), 3);
        put(defaults, key, QVariant());
        QCOMPARE(property.read(&settings), fallback);
        QCOMPARE(changed.size(), 4);
        // A value of another type counts as absent.
        put(defaults, key,
            firstStored.typeId() == QMetaType::Bool ? QVariant("true") : QVariant(true));
        QCOMPARE(property.read(&settings), fallback);
        QCOMPARE(changed.size(), 4);
        QCOMPARE(property.read(std::make_unique<Settings>(defaults).get()), fallback);
    }

    void aChangeAnnouncesNothingElse()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        QSignalSpy other(&settings, &Settings::keepAIHistoryEnabledChanged);
        settings.setCaptureAllScreens(true);
        defaults.setBool("unknown", true);
        QCOMPARE(other.size(), 0);
    }

    void theDefaultIsStoredWhenItIsChosen()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        QSignalSpy changed(&settings, &Settings::captureAllScreensChanged);
        settings.setCaptureAllScreens(false);
        QCOMPARE(defaults.boolValue("captureAllScreens"), false);
        QCOMPARE(changed.size(), 0);
    }

    void listenersSeeTheStoredValue()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        int seen = 0;
        connect(&settings, &Settings::userPromptChanged, this, [&] {
            ++seen;
            QCOMPARE(settings.userPrompt(), Text("Why?"));
            QCOMPARE(defaults.stringValue("userPrompt"), Text("Why?"));
        });
        settings.setUserPrompt("Why?");
        QCOMPARE(seen, 1);
    }

    void settingsOutliveTheProgram()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        {
            JsonUserDefaults defaults(path);
            Settings settings(defaults);
            settings.setAppearance(Settings::Appearance::Dark);
            settings.setUserPrompt("");
        }
        JsonUserDefaults defaults(path);
        const Settings settings(defaults);
        QCOMPARE(settings.appearance(), Settings::Appearance::Dark);
        QCOMPARE(settings.userPrompt(), Text(""));
    }

    void appearanceAsText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<Settings::Appearance>("appearance");
        using Appearance = Settings::Appearance;
        QTest::newRow("light") << "light" << Appearance::Light;
        QTest::newRow("dark") << "dark" << Appearance::Dark;
        QTest::newRow("system") << "system" << Appearance::System;
        QTest::newRow("case") << "Dark" << Appearance::System;
        QTest::newRow("empty") << "" << Appearance::System;
        QTest::newRow("blanks") << " light" << Appearance::System;
    }
    void appearanceAsText()
    {
        QFETCH(QString, text);
        QFETCH(Settings::Appearance, appearance);
        JsonUserDefaults defaults;
        defaults.setString("com.quellora.app.appearance", text);
        Settings settings(defaults);
        QCOMPARE(settings.appearance(), appearance);
        settings.setAppearance(Settings::Appearance::Light);
        settings.setAppearance(appearance);
        QCOMPARE(Settings(defaults).appearance(), appearance);
    }
};

QUELLORA_TEST(QCoreApplication, TestSettings)
#include "test_settings.moc"
