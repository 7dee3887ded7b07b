#include "base/UserDefaults.h"
#include "fakes/LogCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace quellora;

class TestUserDefaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void valuesOfAnotherTypeCountAsAbsent()
    {
        JsonUserDefaults defaults;
        defaults.setString("flag", "true");
        defaults.setBool("text", true);
        QVERIFY(!defaults.boolValue("flag"));
        QVERIFY(!defaults.stringValue("text"));
        QVERIFY(!defaults.stringDictionary("text"));
        QVERIFY(!defaults.boolValue("missing"));
        defaults.setStringDictionary("map", {{"a", "b"}});
        QCOMPARE(*defaults.stringDictionary("map"), (QMap<QString, QString>{{"a", "b"}}));
    }

    void dictionarySkipsNonStringEntries()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"hotkeyBindings":{"clear":"ctrl+k","toggle":7}})");
        file.close();
        JsonUserDefaults defaults(path);
        QCOMPARE(*defaults.stringDictionary("hotkeyBindings"),
                 (QMap<QString, QString>{{"clear", "ctrl+k"}}));
    }

    void changesAreStoredAndAnnouncedOnce()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("deep/er/defaults.json");
        {
            JsonUserDefaults defaults(path);
            QSignalSpy changed(&defaults, &UserDefaults::changed);
            defaults.setString("userPrompt", "a");
            defaults.setString("userPrompt", "a");
            defaults.setString("userPrompt", "b");
            defaults.setBool("keepAIHistoryEnabled", true);
            defaults.remove("absent");
            QCOMPARE(changed.count(), 3);
        }
        JsonUserDefaults again(path);
        QCOMPARE(again.stringValue("userPrompt"), "b");
        QCOMPARE(again.boolValue("keepAIHistoryEnabled"), true);
        QCOMPARE(QFileInfo(path).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther),
                 QFileDevice::Permissions());
        again.remove("userPrompt");
        again.flush();
        QVERIFY(!JsonUserDefaults(path).stringValue("userPrompt"));
    }

    void changesDuringAWriteAreStored()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        JsonUserDefaults defaults(path);
        for (int i = 0; i < 200; ++i)
            defaults.setString("userPrompt", QString::number(i));
        const auto stored = [&path] {
            QFile file(path);
            return file.open(QIODevice::ReadOnly)
                       ? QJsonDocument::fromJson(file.readAll())["userPrompt"].toString()
                       : QString();
        };
        // No flush(): the last value must be written by the event loop.
        QTRY_COMPARE(stored(), "199");
    }

    void damagedFileIsRenamed_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("half") << QByteArray("{\"userPrompt\":\"x");
        QTest::newRow("array") << QByteArray("[1]");
        QTest::newRow("empty") << QByteArray();
    }
    void damagedFileIsRenamed()
    {
        QFETCH(QByteArray, content);
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        LogCapture log;
        JsonUserDefaults defaults(path);
        QVERIFY(defaults.values().isEmpty());
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith("[UserDefaults] ERROR: Could not read " + path));
        QFile aside(path + ".damaged");
        QVERIFY(aside.open(QIODevice::ReadOnly));
        QCOMPARE(aside.readAll(), content);
        defaults.setBool("hasLaunchedBefore", true);
        defaults.flush();
        QCOMPARE(JsonUserDefaults(path).boolValue("hasLaunchedBefore"), true);
    }

    void secondDamagedFileReplacesTheFirst()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        for (const QByteArray &content : {QByteArray("{1"), QByteArray("{2")}) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
            file.close();
            const JsonUserDefaults defaults(path);
            QFile aside(path + ".damaged");
            QVERIFY(aside.open(QIODevice::ReadOnly));
            QCOMPARE(aside.readAll(), content);
        }
    }

    void ignoresTemporaryFileOfInterruptedWrite()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("defaults.json");
        {
            JsonUserDefaults defaults(path);
            defaults.setString("userPrompt", "whole");
        }
        // Temporary file of a process that died while writing.
        QFile partial(path + ".AbCdEf");
        QVERIFY(partial.open(QIODevice::WriteOnly));
        partial.write("{\"userPrompt\":\"ha");
        partial.close();
        LogCapture log;
        JsonUserDefaults again(path);
        QCOMPARE(again.stringValue("userPrompt"), "whole");
        QVERIFY(log.lines.isEmpty());
    }

    void failedWriteIsLoggedAndKeepsTheValue()
    {
        QTemporaryDir folder;
        QFile blocker(folder.filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        JsonUserDefaults defaults(folder.filePath("file/defaults.json"));
        LogCapture log;
        defaults.setString("userPrompt", "kept");
        defaults.flush();
        QCOMPARE(defaults.stringValue("userPrompt"), "kept");
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().endsWith("(non-fatal)"));
    }

    void failedWriteIsRetriedUntilItSucceeds()
    {
        QTemporaryDir folder;
        QFile blocker(folder.filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        const QString path = folder.filePath("file/defaults.json");
        LogCapture log;
        JsonUserDefaults defaults(path, nullptr, std::chrono::milliseconds(1));
        defaults.setString("userPrompt", "first");
        QTRY_COMPARE(log.lines.size(), 1);
        defaults.setBool("hasLaunchedBefore", true);
        // Repeated failures with the same error are logged once.
        const QTimer *retry = defaults.findChild<QTimer *>();
        QTRY_VERIFY(retry->intervalAsDuration() >= std::chrono::milliseconds(8));
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(blocker.remove());
        // The retry succeeds without another change or flush().
        QTRY_COMPARE(log.lines.size(), 2);
        QCOMPARE(log.lines.last(), "[UserDefaults] " + path + " is written again");
        const JsonUserDefaults stored(path);
        QCOMPARE(stored.stringValue("userPrompt"), "first");
        QCOMPARE(stored.boolValue("hasLaunchedBefore"), true);
    }

    void failedWriteIsRetriedOnDestruction()
    {
        QTemporaryDir folder;
        QFile blocker(folder.filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        const QString path = folder.filePath("file/defaults.json");
        LogCapture log;
        {
            JsonUserDefaults defaults(path, nullptr, std::chrono::hours(1));
            defaults.setString("userPrompt", "kept");
            // The next retry is an hour away.
            QTRY_COMPARE(log.lines.size(), 1);
            QVERIFY(blocker.remove());
        }
        QCOMPARE(JsonUserDefaults(path).stringValue("userPrompt"), "kept");
    }

    void retryDelayDoublesUpToOneMinute()
    {
        QTemporaryDir folder;
        QFile blocker(folder.filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        LogCapture log;
        JsonUserDefaults defaults(folder.filePath("file/defaults.json"), nullptr,
                                  std::chrono::milliseconds(1));
        defaults.setString("userPrompt", "kept");
        QTimer *retry = defaults.findChild<QTimer *>();
        QVERIFY(retry);
        QTRY_VERIFY(retry->intervalAsDuration() >= std::chrono::milliseconds(32));
        retry->stop();
        retry->setInterval(std::chrono::seconds(50));
        defaults.flush();
        QCOMPARE(retry->intervalAsDuration(), std::chrono::milliseconds(std::chrono::minutes(1)));
    }
};

QUELLORA_TEST(QCoreApplication, TestUserDefaults)
#include "test_user_defaults.moc"
