#include "backend/Records.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace quellora;

namespace {

QJsonObject configObject()
{
    return {{"model", "m1"},
            {"availableModels",
             QJsonArray{QJsonObject{{"id", "m1"}, {"displayName", "One"}, {"descriptor", "d"}}}},
            {"defaultPrompt", "p"},
            {"minimumAppVersion", "1.0.0"},
            {"tokensUsed", 10},
            {"tokensRemaining", 90},
            {"tokenCap", 100},
            {"usageWarning75", true},
            {"usageWarning90", false},
            {"plan", "pro"},
            {"subscriptionStatus", "active"}};
}

QJsonObject messageObject()
{
    return {{"id", "1"}, {"type", "BLOCKING"}, {"headerText", "h"}, {"bodyMarkdown", "b"}};
}

QJsonObject response(const QJsonObject &config)
{
    return {{"token", "t"}, {"sessionId", "s"}, {"config", config}};
}

} // namespace

class TestRecords : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void destinationsAreHostNamesOrNothing()
    {
        const auto destination = [](const QJsonValue &value) {
            QJsonObject object{{"id", "m"}, {"displayName", "n"}, {"descriptor", "d"}};
            if (!value.isUndefined())
                object["destination"] = value;
            const auto model = ModelOption::fromJson(object);
            return model ? model->destination : QStringLiteral("not decoded");
        };
        QCOMPARE(destination(QJsonValue::Undefined), "");
        QCOMPARE(destination(QJsonValue::Null), "");
        QCOMPARE(destination("API.Example.com"), "api.example.com");
        QCOMPARE(destination("[::1]"), "[::1]");
        QCOMPARE(destination(QString(253, 'a')), QString(253, 'a'));
        // A hostile backend's texts are left out, and cost nothing else.
        for (const QJsonValue &bad :
             {QJsonValue(5), QJsonValue(true), QJsonValue(QJsonArray()), QJsonValue(QJsonObject()),
              QJsonValue(QString(254, 'a')), QJsonValue("two words"), QJsonValue("a<b>"),
              QJsonValue("line\n"),
              // NOLINTNEXTLINE(misc-misleading-bidirectional): escaped
              QJsonValue(QString::fromUtf8("\u202Egro.elpmaxe")),
              QJsonValue(QString::fromUtf8("b\u00fccher.de")), QJsonValue("a/b"), QJsonValue("a@b"),
              QJsonValue(QString(1 << 20, 'x'))})
            QCOMPARE(destination(bad), "");
    }

    void destinationIsKeptInTheRecord()
    {
        const ModelOption model{"m", "n", "d", "api.example.com"};
        QCOMPARE(ModelOption::fromJson(model.toJson()).value(), model);
        QVERIFY(!ModelOption({"m", "n", "d"}).toJson().contains("destination"));
        QVERIFY(qHash(model) != qHash(ModelOption{"m", "n", "d", "other.example.com"}));
    }

    void destinationNames()
    {
        const QUrl local("http://127.0.0.1:9878");
        QCOMPARE(destinationName({}, local), "");
        QCOMPARE(destinationName("api.example.com", local), "api.example.com");
        for (const char *host : {"localhost", "127.0.0.1", "127.9.9.9", "[::1]", "::1"}) {
            QCOMPARE(destinationName(host, local), "this machine");
            QCOMPARE(destinationName(host, QUrl("http://[::1]:9878")), "this machine");
            QCOMPARE(destinationName(host, QUrl("https://team.example.com/x")), "team.example.com");
        }
        QCOMPARE(destinationName("127.0.0.1.example.com", local), "127.0.0.1.example.com");
    }

    void connectModelIsOptional()
    {
        QVERIFY(!AppConfigResponse::fromJson(configObject())->connectModel);
        for (const QJsonValue &value : {QJsonValue(true), QJsonValue(false), QJsonValue("yes"),
                                        QJsonValue(1), QJsonValue(QJsonValue::Null)}) {
            QJsonObject object = configObject();
            object["connectModel"] = value;
            const auto config = AppConfigResponse::fromJson(object);
            QVERIFY(config);
            QCOMPARE(config->connectModel, value == QJsonValue(true));
            QCOMPARE(AppConfigResponse::fromJson(config->toJson()).value(), *config);
            QCOMPARE(config->toJson().contains("connectModel"), config->connectModel);
        }
    }

    void decodesFullConfiguration()
    {
        QJsonObject object = configObject();
        object["heartbeatIntervalSeconds"] = 60;
        QJsonObject message = messageObject();
        message["actionLabel"] = "go";
        message["actionUrl"] = "https://x";
        message["forceUpdateInMinutes"] = 5;
        object["adminMessage"] = message;
        object["requestLogs"] = true;
        object["debugLogging"] = false;
        object["somethingNew"] = 7;
        const auto config = AppConfigResponse::fromJson(object);
        QVERIFY(config);
        QCOMPARE(config->availableModels, (QList<ModelOption>{{"m1", "One", "d"}}));
        QCOMPARE(config->tokensUsed, 10);
        QCOMPARE(config->tokensRemaining, 90);
        QCOMPARE(config->tokenCap, 100);
        QVERIFY(config->usageWarning75 && !config->usageWarning90);
        QCOMPARE(config->heartbeatIntervalSeconds, 60);
        QCOMPARE(config->adminMessage->actionLabel, "go");
        QCOMPARE(config->adminMessage->forceUpdateInMinutes, 5);
        QVERIFY(config->adminMessage->isBlocking());
        QCOMPARE(config->requestLogs, true);
        QCOMPARE(config->debugLogging, false);
        object.remove("somethingNew");
        QCOMPARE(config->toJson(), object);
    }

    void missingOptionalsAreEmpty()
    {
        const auto config = AppConfigResponse::fromJson(configObject());
        QVERIFY(config);
        QCOMPARE(config->heartbeatIntervalSeconds, 86400);
        QVERIFY(!config->adminMessage && !config->requestLogs && !config->debugLogging);
        const QJsonObject encoded = config->toJson();
        QVERIFY(!encoded.contains("requestLogs") && !encoded.contains("debugLogging") &&
                !encoded.contains("adminMessage"));
    }

    void nullOptionalsAreEmpty()
    {
        QJsonObject object = configObject();
        for (const char *key :
             {"heartbeatIntervalSeconds", "adminMessage", "requestLogs", "debugLogging"})
            object[key] = QJsonValue::Null;
        const auto config = AppConfigResponse::fromJson(object);
        QVERIFY(config);
        QCOMPARE(config->heartbeatIntervalSeconds, 86400);
        QVERIFY(!config->adminMessage && !config->requestLogs);
    }

    void zeroIntervalIsAccepted()
    {
        QJsonObject object = configObject();
        object["heartbeatIntervalSeconds"] = 0;
        QCOMPARE(AppConfigResponse::fromJson(object)->heartbeatIntervalSeconds, 0);
    }

    void tokenCountsAreNotCrossChecked()
    {
        QJsonObject object = configObject();
        object["tokensUsed"] = -5;
        object["tokensRemaining"] = 1000000;
        QCOMPARE(AppConfigResponse::fromJson(object)->tokensUsed, -5);
    }

    void missingOrMistypedRequiredKeyFails_data()
    {
        QTest::addColumn<QString>("key");
        const QJsonObject object = configObject();
        for (const QString &key : object.keys())
            QTest::newRow(qPrintable(key)) << key;
    }
    void missingOrMistypedRequiredKeyFails()
    {
        QFETCH(QString, key);
        for (const QJsonValue &bad :
             {QJsonValue(QJsonValue::Undefined), QJsonValue(QJsonValue::Null),
              QJsonValue(QJsonObject{{"other", 1}})}) {
            QJsonObject object = configObject();
            if (bad.isUndefined())
                object.remove(key);
            else
                object[key] = bad;
            const auto config = AppConfigResponse::fromJson(object);
            QVERIFY(!config);
            QVERIFY2(config.error().description.contains(key),
                     qPrintable(config.error().description));
        }
    }

    void rejectsFractionsAndHugeNumbersAsIntegers()
    {
        for (const double bad : {1.5, 1e30, -1e30}) {
            QJsonObject object = configObject();
            object["tokenCap"] = bad;
            QVERIFY(!AppConfigResponse::fromJson(object));
        }
    }

    void optionalOfWrongTypeFails()
    {
        QJsonObject object = configObject();
        object["requestLogs"] = "yes";
        QVERIFY(!AppConfigResponse::fromJson(object));
    }

    void invalidModelFailsTheConfiguration()
    {
        QJsonObject object = configObject();
        object["availableModels"] = QJsonArray{QJsonObject{{"id", "a"}, {"displayName", "b"}}};
        QVERIFY(!AppConfigResponse::fromJson(object));
    }

    void invalidAdminMessageFailsTheResponse()
    {
        QJsonObject object = configObject();
        QJsonObject message = messageObject();
        message.remove("headerText");
        object["adminMessage"] = message;
        QVERIFY(!LoginResponse::fromJson(response(object)));
    }

    void responseRequiresConfig()
    {
        QVERIFY(!LoginResponse::decode(R"({"token":"t","sessionId":"s"})"));
        QVERIFY(!LoginResponse::decode("[]"));
        QVERIFY(!LoginResponse::decode("{"));
        QVERIFY(!LoginResponse::decode(""));
        const auto whole = LoginResponse::decode(QJsonDocument(response(configObject())).toJson());
        QVERIFY(whole);
        QCOMPARE(whole->token, "t");
        QCOMPARE(*LoginResponse::fromJson(whole->toJson()), *whole);
    }

    void encodesRequestBodies()
    {
        const DeviceFields device{"Debian", {{"capture", "ctrl+c"}}, "x86_64"};
        const QJsonObject login =
            QJsonDocument::fromJson(encodeLoginRequest(" a@b ", " pw ", device)).object();
        QCOMPARE(login, (QJsonObject{{"email", " a@b "},
                                     {"password", " pw "},
                                     {"osVersion", "Debian"},
                                     {"hotkeys", QJsonObject{{"capture", "ctrl+c"}}},
                                     {"cpuArch", "x86_64"}}));
        const QJsonObject verify = QJsonDocument::fromJson(encodeVerifyRequest(device)).object();
        QCOMPARE(verify.keys(), (QStringList{"cpuArch", "hotkeys", "osVersion"}));
    }

    void describesErrors()
    {
        QCOMPARE(AuthError::invalidCredentials().description(), "Invalid email or password");
        QCOMPARE(AuthError::accountSuspended().description(),
                 "Your account has been suspended. Contact support.");
        QCOMPARE(AuthError::decodingError().description(), "Unexpected response from server");
        QCOMPARE(AuthError::networkError(-1).description(),
                 "Connection error (-1). Check your internet connection.");
        QCOMPARE(AuthError::networkError(500).description(),
                 "Connection error (500). Check your internet connection.");
    }
};

QUELLORA_TEST(QCoreApplication, TestRecords)
#include "test_records.moc"
