#include "base/AppConfig.h"
#include "base/Log.h"
#include "base/ProjectPaths.h"
#include "base/Text.h"
#include "base/UserDefaults.h"
#include "base/VantiroConfig.h"
#include "fakes/LogCapture.h"
#include "query/PromptConfig.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBoundaryFinder>

using namespace quellora;

namespace {

const QByteArray requiredHotkeys = R"("capture":"ctrl+1","clear":"ctrl+2","toggle":"ctrl+3",)"
                                   R"("opacity_up":"ctrl+4","opacity_down":"ctrl+5")";
const QByteArray overlay = R"({"x":1.5,"y":2,"width":700,"height":500,"default_opacity":0.5})";

const QList<VantiroConfig::HotkeyKey> hotkeyKeys{{"capture", true},      {"clear", true},
                                                 {"toggle", true},       {"opacity_up", true},
                                                 {"opacity_down", true}, {"capture_no_send", false},
                                                 {"new_thread", false}};

QByteArray configFile(const QByteArray &hotkeys, const QByteArray &overlayObject)
{
    return "{\"hotkeys\":{" + hotkeys + "},\"overlay\":" + overlayObject + ",\"unknown\":[]}";
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

} // namespace

class TestConfig : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void formatsLogLinesWithLocalMilliseconds()
    {
        const QDateTime time(QDate(2026, 3, 1), QTime(9, 5, 3, 7));
        QCOMPARE(Log::formatLine(time, QStringLiteral("x")), QStringLiteral("[09:05:03.007] x"));
    }

    void usesBaseUrlOverrideUnchanged()
    {
        LogCapture log;
        QCOMPARE(AppConfig::resolveBackendBaseURL(QStringLiteral("http://host:1/ ")),
                 QStringLiteral("http://host:1/ "));
        QCOMPARE(log.lines,
                 QStringList{"[AppConfig] Using QUELLORA_BACKEND_URL override: http://host:1/ "});
    }

    void usesProductionUrlWithoutOverride()
    {
        LogCapture log;
        const QString base = AppConfig::resolveBackendBaseURL({});
        QVERIFY(base.startsWith(QLatin1String("https://")));
        QVERIFY(!base.endsWith(QLatin1Char('/')));
        QCOMPARE(log.lines,
                 QStringList{"[AppConfig] QUELLORA_BACKEND_URL not set, defaulting to production"});
    }

    void concatenatesEndpoints()
    {
        const BackendEndpoints plain(QStringLiteral("http://127.0.0.1:8080"));
        QCOMPARE(plain.appLogin().toString(), "http://127.0.0.1:8080/api/auth/app-login");
        QCOMPARE(plain.appVerify().toString(), "http://127.0.0.1:8080/api/auth/app-verify");
        QCOMPARE(plain.proxyQuery().toString(), "http://127.0.0.1:8080/api/proxy/query");
        QCOMPARE(plain.telemetry().toString(), "http://127.0.0.1:8080/api/telemetry/query");
        QCOMPARE(plain.logsUpload().toString(), "http://127.0.0.1:8080/api/logs/app");
        QCOMPARE(plain.googleLogin().toString(),
                 "http://127.0.0.1:8080/login?callback=http://127.0.0.1:9877/oauth-callback");
        QCOMPARE(plain.forgotPassword().toString(), "http://127.0.0.1:8080/reset-password");
        QCOMPARE(plain.signup().toString(), "http://127.0.0.1:8080/signup");
        QCOMPARE(plain.account().toString(), "http://127.0.0.1:8080/account");
        QCOMPARE(plain.billing().toString(), "http://127.0.0.1:8080/account/billing");
        QCOMPARE(plain.pricing().toString(), "http://127.0.0.1:8080/pricing");
        QCOMPARE(plain.help().toString(), "http://127.0.0.1:8080/help");
        const BackendEndpoints slash(QStringLiteral("http://host/"));
        QCOMPARE(slash.appLogin().toString(), "http://host//api/auth/app-login");
    }

    void truncatesCredits_data()
    {
        QTest::addColumn<qint64>("tokens");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << qint64(0) << "0";
        QTest::newRow("below one") << qint64(99) << "0";
        QTest::newRow("negative") << qint64(-150) << "-1";
        QTest::newRow("last plain") << qint64(99999) << "999";
        QTest::newRow("first K") << qint64(100000) << "1K";
        QTest::newRow("truncated K") << qint64(199999) << "1K";
        QTest::newRow("250000") << qint64(250000) << "2K";
        QTest::newRow("million") << qint64(1000000) << "10K";
    }
    void truncatesCredits()
    {
        QFETCH(qint64, tokens);
        QFETCH(QString, text);
        QCOMPARE(AppConfig::formatCredits(tokens), text);
    }

    void decodesCompleteFile()
    {
        QString error;
        const auto config = VantiroConfig::decode(
            configFile(requiredHotkeys + R"(,"capture_no_send":"ctrl+6","new_thread":"ctrl+7")",
                       overlay),
            hotkeyKeys, &error);
        QVERIFY2(config, qPrintable(error));
        QCOMPARE(config->hotkeys, (VantiroConfig::Hotkeys{{"capture", "ctrl+1"},
                                                          {"clear", "ctrl+2"},
                                                          {"toggle", "ctrl+3"},
                                                          {"opacity_up", "ctrl+4"},
                                                          {"opacity_down", "ctrl+5"},
                                                          {"capture_no_send", "ctrl+6"},
                                                          {"new_thread", "ctrl+7"}}));
        QCOMPARE(config->overlay, (VantiroConfig::Overlay{1.5, 2, 700, 500, 0.5}));
    }

    void optionalHotkeysHaveDefaults()
    {
        QString error;
        const auto config = VantiroConfig::decode(
            configFile(requiredHotkeys + R"(,"new_thread":null,"unknown":7)", overlay), hotkeyKeys,
            &error);
        QVERIFY2(config, qPrintable(error));
        QCOMPARE(config->hotkeys.keys(),
                 (QStringList{"capture", "clear", "opacity_down", "opacity_up", "toggle"}));
    }

    void invalidFileYieldsDefaults_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not JSON") << QByteArray("{");
        QTest::newRow("array") << QByteArray("[]");
        QTest::newRow("no sections") << QByteArray("{}");
        QTest::newRow("overlay lacks x") << configFile(
            requiredHotkeys, R"({"y":2,"width":700,"height":500,"default_opacity":0.5})");
        QTest::newRow("hotkey missing") << configFile(R"("capture":"ctrl+1")", overlay);
        QTest::newRow("wrong type") << configFile(
            requiredHotkeys, R"({"x":"1","y":2,"width":700,"height":500,"default_opacity":0.5})");
        QTest::newRow("optional of wrong type")
            << configFile(requiredHotkeys + R"(,"new_thread":7)", overlay);
    }
    void invalidFileYieldsDefaults()
    {
        QFETCH(QByteArray, content);
        QTemporaryDir folder;
        const QString path = folder.filePath("config.json");
        write(path, content);
        LogCapture log;
        QCOMPARE(VantiroConfig::load(QDir(folder.path()), hotkeyKeys), VantiroConfig());
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith("[Config] Failed to parse " + path + ": "));
        QVERIFY(log.lines.first().endsWith(". Using built-in defaults"));
    }

    void unreadableFileYieldsDefaults()
    {
        QTemporaryDir folder;
        QVERIFY(QDir(folder.path()).mkdir("config.json"));
        LogCapture log;
        QCOMPARE(VantiroConfig::load(QDir(folder.path()), hotkeyKeys), VantiroConfig());
        QVERIFY(log.lines.value(0).startsWith("[Config] Failed to parse "));
    }

    void missingFileYieldsDefaults()
    {
        LogCapture log;
        QCOMPARE(VantiroConfig::load(std::nullopt, hotkeyKeys), VantiroConfig());
        QCOMPARE(log.lines, QStringList{"[Config] config.json not found, using built-in defaults"});
    }

    void logsLoadedFile()
    {
        QTemporaryDir folder;
        write(folder.filePath("config.json"), configFile(requiredHotkeys, overlay));
        LogCapture log;
        QCOMPARE(VantiroConfig::load(QDir(folder.path()), hotkeyKeys).overlay.width, 700.0);
        QCOMPARE(log.lines, QStringList{"[Config] Loaded " + folder.filePath("config.json")});
    }

    void searchesWorkingDirectoryThenProgramAncestors()
    {
        QTemporaryDir root;
        const QString deep = root.filePath("1/2/3/4/5/6/7/8");
        QVERIFY(QDir().mkpath(deep));
        QVERIFY(QDir().mkpath(root.filePath("cwd")));
        const QString program = deep + "/quellora";
        write(program, "x");
        const QString cwd = root.filePath("cwd");

        // Eight folders are searched: the ninth is out of range, the eighth is not.
        write(root.filePath("config.json"), "{}");
        QVERIFY(!ProjectPaths::projectRoot(cwd, program));
        write(root.filePath("1/config.json"), "{}");
        QCOMPARE(ProjectPaths::projectRoot(cwd, program)->canonicalPath(),
                 QDir(root.filePath("1")).canonicalPath());
        write(deep + "/config.json", "{}");
        QCOMPARE(ProjectPaths::projectRoot(cwd, program)->canonicalPath(),
                 QDir(deep).canonicalPath());
        // Symbolic links are resolved before the search.
        const QString link = cwd + "/link";
        QVERIFY(QFile::link(program, link));
        QCOMPARE(ProjectPaths::projectRoot(root.filePath("1/2"), link)->canonicalPath(),
                 QDir(deep).canonicalPath());
        write(cwd + "/config.json", "{}");
        QCOMPARE(ProjectPaths::projectRoot(cwd, program)->canonicalPath(),
                 QDir(cwd).canonicalPath());
    }

    void searchStopsAtTheFileSystemRoot()
    {
        QTemporaryDir empty;
        QVERIFY(!ProjectPaths::projectRoot(empty.path(), "/nowhere/quellora"));
    }

    void hexColors()
    {
        for (const char *color : {"#fff", "#ABCd", "#8899aa", "#8899AAff"})
            QVERIFY2(isHexColor(color), color);
        for (const char *other :
             {"", "#", "#ff", "#12345", "#1234567", "8899aa", "#ggg", "red;}", "#fff\n", " #fff"})
            QVERIFY2(!isHexColor(other), other);
    }

    void decimalTextAlwaysHasAFraction()
    {
        QCOMPARE(decimalText(60), "60.0");
        QCOMPARE(decimalText(0), "0.0");
        QCOMPARE(decimalText(86400), "86400.0");
        QCOMPARE(decimalText(0.1), "0.1");
        QCOMPARE(decimalText(-0.1), "-0.1");
    }

    void decimalTextHasNoExponent_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("a million") << 1e6 << "1000000.0";
        QTest::newRow("a year of seconds") << 31536000.0 << "31536000.0";
        QTest::newRow("largest exact integer") << 9007199254740992.0 << "9007199254740992.0";
        QTest::newRow("largest 64-bit integer") << 9223372036854775807.0 << "9223372036854776000.0";
        QTest::newRow("smallest 64-bit integer")
            << -9223372036854775808.0 << "-9223372036854776000.0";
        QTest::newRow("very large") << 1e300 << "1" + QString(300, '0') + ".0";
        QTest::newRow("small") << 0.00001 << "0.00001";
        QTest::newRow("very small") << 1e-300 << "0." + QString(299, '0') + "1";
        QTest::newRow("long fraction") << 1234567.125 << "1234567.125";
    }
    void decimalTextHasNoExponent()
    {
        QFETCH(double, value);
        QFETCH(QString, text);
        QCOMPARE(decimalText(value), text);
        QCOMPARE(decimalText(value).toDouble(), value);
    }

    void countsGraphemeClusters()
    {
        QCOMPARE(characterCount("abc"), 3);
        QCOMPARE(characterCount(""), 0);
        QCOMPARE(characterCount(QString::fromUtf8("e\u0301👍🏽")), 2);
        QCOMPARE(characterCount("a\r\nb"), 3);
        QCOMPARE(characterCount("\r\n\r\n\r"), 3);
    }

    void countsGraphemeClustersOfMixedScripts()
    {
        const QStringList pieces{"a",
                                 "\r",
                                 "\n",
                                 "ä",
                                 "e\u0301",
                                 "\u0301",
                                 "漢",
                                 "か\u3099",
                                 QString::fromUtf8("👩‍👩‍👧"),
                                 QString::fromUtf8("🇩🇪"),
                                 "\u0600",
                                 "ي",
                                 "한",
                                 "\u1100\u1161",
                                 "\u200d",
                                 "Ж\u0483"};
        quint32 state = 1;
        for (int i = 0; i < 300; ++i) {
            QString text;
            for (int n = 0; n < 12; ++n) {
                state = state * 1664525U + 1013904223U;
                text += pieces[static_cast<qsizetype>((state >> 8) % quint32(pieces.size()))];
            }
            QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
            qsizetype expected = 0;
            while (finder.toNextBoundary() != -1)
                ++expected;
            QCOMPARE(characterCount(text), expected);
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestConfig)
#include "test_config.moc"
