#include "overlay/EngineWindow.h"
#include "overlay/page/ResponsePage.h"
#include "overlay/page/WebEngineSetup.h"

#include <QGuiApplication>

using namespace quellora;

class TestPageEngine : public QObject
{
    Q_OBJECT

private slots:
    void rendersMarkdownWithoutNetwork();
};

void TestPageEngine::rendersMarkdownWithoutNetwork()
{
    EngineWindow engine;
    QSignalSpy messages(&engine.view, &PageSurface::message);
    QVERIFY(engine.load(responsepage::singleAnswerPage(
        QStringLiteral("# Title\n\n**bold** `code`\n\n```cpp\nint main() { return 0; }\n```\n\n- "
                       "[x] done\n\n[l](https://example.com/x)"),
        {})));
    qDebug() << engine.text(QStringLiteral("document.getElementById('ct').innerHTML"));
    qDebug() << engine.text(
        "typeof qt + ' ' + typeof RTCPeerConnection + location.href + ' ' + origin + ' ' + "
        "[...document.fonts].map(f=>f.family+f.weight+f.status).join() + document.fonts.size");
    qDebug() << engine.text("getComputedStyle(document.querySelector('pre code')).fontFamily")
             << messages;
    qDebug() << engine.text("document.fonts.check('13px \"SF Pro Text\"')+' '+ "
                            "document.querySelector('strong').getBoundingClientRect().width");
}

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    TestPageEngine test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_page_engine.moc"
