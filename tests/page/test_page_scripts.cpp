#include "page/PageScripts.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJSEngine>
#include <QTest>
#include <QWebEngineScript>

using namespace quellora;

/// The bridge script in a plain script engine: it sends the web channel's message format, which the
/// host's end of the channel understands without a handshake.
class TestPageScripts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sendsInvokeMessages();
    void scriptsRunWhereTheyMust();
};

void TestPageScripts::sendsInvokeMessages()
{
    QString bridge;
    for (const QVariant &value : pagescripts::userScripts(false)) {
        const auto script = value.value<QWebEngineScript>();
        if (script.name() == QStringLiteral("bridge"))
            bridge = script.sourceCode();
    }
    QVERIFY(!bridge.isEmpty());

    QJSEngine engine;
    engine.evaluate(QStringLiteral(
        "var globalThis = this; var sent = []; var listeners = {}; var window = this; var history "
        "= {};"
        "var listen = (type, f) => { (listeners[type] = listeners[type] || []).push(f); };"
        "window.addEventListener = listen;"
        "var Element = class { constructor(name, value) { this.name = name; this.value = value; }"
        "hasAttribute(name) { return name === this.name; } getAttribute() { return this.value; }"
        "closest() { return this; } };"
        "var ResizeObserver = class { observe() {} };"
        "var document = { documentElement: { dataset: { load: '12' } }, body: { scrollTop: 1.5, "
        "scrollHeight: 2, clientHeight: 3,"
        "children: [{}], addEventListener: listen } };"
        "var happen = (type, isTrusted, target, key) => listeners[type][0]({ isTrusted, target, "
        "key,"
        "preventDefault() {} });"
        "this.qt = { webChannelTransport: { send: function(text) { sent.push(text); } } };"));
    const QJSValue result = engine.evaluate(bridge);
    QVERIFY2(!result.isError(), qPrintable(result.toString()));
    QVERIFY(engine.evaluate(QStringLiteral("typeof qt === 'undefined'")).toBool());
    for (const char *isTrusted : {"true", "false"}) {
        const QJSValue done = engine.evaluate(
            QStringLiteral("if (%1) happen('DOMContentLoaded', true); else happen('scroll', false);"
                           "happen('click', %1, new Element('data-picture', '3'));"
                           "happen('keydown', %1, new Element('data-picture', '4'), 'Enter');"
                           "happen('keydown', %1, new Element('data-picture', '5'), 'a');"
                           "happen('keydown', %1, new Element('data-note', 'n'), 'Enter');"
                           "happen('click', %1, new Element('data-note', 'n'));"
                           "happen('click', %1, new Element('href', 'l'));")
                .arg(QLatin1StringView(isTrusted)));
        QVERIFY2(!done.isError(), qPrintable(done.toString()));
    }
    QCOMPARE(engine.evaluate(QStringLiteral("sent.join('\\n')")).toString(),
             QStringLiteral(
                 R"({"type":6,"id":0,"object":"bridge","method":"post","args":["scrollPosition",)"
                 R"({"scrollTop":1.5,"scrollHeight":2,"clientHeight":3}]})"
                 "\n"
                 R"({"type":6,"id":1,"object":"bridge","method":"post","args":["openScreenshot",)"
                 R"({"page":12,"index":3}]})"
                 "\n"
                 R"({"type":6,"id":2,"object":"bridge","method":"post","args":["openScreenshot",)"
                 R"({"page":12,"index":4}]})"
                 "\n"
                 R"({"type":6,"id":3,"object":"bridge","method":"post","args":["noteDelete","n"]})"
                 "\n"
                 R"({"type":6,"id":4,"object":"bridge","method":"post","args":["link","l"]})"));
}

void TestPageScripts::scriptsRunWhereTheyMust()
{
    const QVariantList scripts = pagescripts::userScripts(false);
    QCOMPARE(scripts.size(), 6);
    for (const QVariant &value : scripts) {
        const auto script = value.value<QWebEngineScript>();
        QCOMPARE(script.injectionPoint(), QWebEngineScript::DocumentCreation);
        // The bridge runs in a separate world, in which no page script runs.
        QCOMPARE(script.worldId(), static_cast<quint32>(script.name() == QStringLiteral("bridge")
                                                            ? QWebEngineScript::ApplicationWorld
                                                            : QWebEngineScript::MainWorld));
        // Frames get no bridge, but peer connections are removed there as well.
        QCOMPARE(script.runsOnSubFrames(), script.name() == QStringLiteral("no-peer-connections"));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%inter-400%")));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%parts%")));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%reduced%")));
    }
}

QUELLORA_TEST(QCoreApplication, TestPageScripts)
#include "test_page_scripts.moc"
