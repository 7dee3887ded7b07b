#include "overlay/page/PageScripts.h"

#include <QJSEngine>
#include <QTest>
#include <QWebEngineScript>

using namespace quellora;

/// The bridge in a bare script engine: what it sends is the web channel's own message format, which
/// the host's side of the channel must understand without a hand-shake.
class TestPageScripts : public QObject
{
    Q_OBJECT

private slots:
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
        "var sent = []; var window = this; window.addEventListener = function() {};"
        "this.qt = { webChannelTransport: { send: function(text) { sent.push(text); } } };"));
    const QJSValue result = engine.evaluate(bridge);
    QVERIFY2(!result.isError(), qPrintable(result.toString()));
    QVERIFY(engine.evaluate(QStringLiteral("typeof qt === 'undefined'")).toBool());
    engine.evaluate(QStringLiteral(
        "var h = window.webkit.messageHandlers;"
        "h.scrollPosition.postMessage({scrollTop: 1.5, scrollHeight: 2, clientHeight: 3});"
        "h.openScreenshot.postMessage('/p'); h.noteDelete.postMessage();"));
    QCOMPARE(engine.evaluate(QStringLiteral("sent.join('|')")).toString(),
             QStringLiteral(
                 R"({"type":6,"id":0,"object":"bridge","method":"post","args":["scrollPosition",)"
                 R"({"scrollTop":1.5,"scrollHeight":2,"clientHeight":3}]}|)"
                 R"({"type":6,"id":1,"object":"bridge","method":"post","args":["openScreenshot",)"
                 R"("/p"]}|)"
                 R"({"type":6,"id":2,"object":"bridge","method":"post","args":["noteDelete",)"
                 R"(null]})"));
}

void TestPageScripts::scriptsRunWhereTheyMust()
{
    const QVariantList scripts = pagescripts::userScripts(false);
    QCOMPARE(scripts.size(), 6);
    for (const QVariant &value : scripts) {
        const auto script = value.value<QWebEngineScript>();
        QCOMPARE(script.injectionPoint(), QWebEngineScript::DocumentCreation);
        QCOMPARE(script.worldId(), static_cast<quint32>(QWebEngineScript::MainWorld));
        // Frames get no bridge, and no peer connections either.
        QCOMPARE(script.runsOnSubFrames(), script.name() == QStringLiteral("no-peer-connections"));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%inter-400%")));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%parts%")));
        QVERIFY(!script.sourceCode().contains(QStringLiteral("%reduced%")));
    }
}

QTEST_GUILESS_MAIN(TestPageScripts)
#include "test_page_scripts.moc"
