#include "EngineWindow.h"
#include "fakes/LogCapture.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSet>

using namespace quellora;

namespace {

/// A page with a sub-resource, as real pages have, and its number as text.
QByteArray page(int number)
{
    return "<!DOCTYPE html><html><head><script src=\"https://cdn.jsdelivr.net/npm/marked/lib/"
           "marked.umd.js\"></script></head><body>page " +
           QByteArray::number(number) + "</body></html>";
}

void pause(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

/// Loads in quick succession: a page that is replaced while it loads must not prevent the next one.
class TestPageRapidLoads : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void theLastOfSeveralLoadsIsShown_data()
    {
        QTest::addColumn<int>("gap");
        for (const int gap : {0, 5, 15, 30, 60, 110, 180})
            QTest::newRow(qPrintable(QString::number(gap))) << gap;
    }
    void theLastOfSeveralLoadsIsShown()
    {
        QFETCH(int, gap);
        LogCapture log;
        EngineWindow engine;
        int number = 0;
        for (int round = 0; round < 6; ++round) {
            PageSurface::LoadId last = 0;
            PageSurface::LoadId finished = 0;
            const auto connection = connect(&engine.view, &PageSurface::loadFinished, this,
                                            [&finished](PageSurface::LoadId id) { finished = id; });
            for (int i = 0; i < 4; ++i) {
                last = engine.view.load({page(++number)}, QStringLiteral("load"));
                pause(gap);
            }
            runUntil([&] { return finished == last; }, std::chrono::seconds(15));
            disconnect(connection);
            QCOMPARE(finished, last);
            QCOMPARE(engine.text(QStringLiteral("document.body.innerText.trim()")),
                     QStringLiteral("page %1").arg(number));
        }
    }

    /// The engine never gives back what it keeps for an address.
    void severalPagesHaveOneAddress()
    {
        EngineWindow engine;
        QSet<QString> addresses;
        for (int number = 0; number < 40; ++number) {
            QVERIFY(engine.load({page(number)}));
            QCOMPARE(engine.text(QStringLiteral("document.body.innerText.trim()")),
                     QStringLiteral("page %1").arg(number));
            addresses += engine.text(QStringLiteral("location.href"));
        }
        // More than two if the engine was so slow that it was asked again.
        QVERIFY2(addresses.size() < 15, qPrintable(addresses.values().join(u' ')));
        QVERIFY(addresses.size() > 1);
    }

    /// The same page again is loaded again, from its beginning.
    void samePageIsLoadedAgain()
    {
        EngineWindow engine;
        const QByteArray text = "<!DOCTYPE html><html><body>" +
                                QByteArray("<p>line</p>").repeated(200) + "</body></html>";
        for (int round = 0; round < 3; ++round) {
            QVERIFY(engine.load({text}));
            QCOMPARE(engine.value(QStringLiteral("scrollY")).toInt(), 0);
            QCOMPARE(engine.text(QStringLiteral("typeof window.left")),
                     QStringLiteral("undefined"));
            engine.value(QStringLiteral("window.left = 1; scrollTo(0, 500)"));
            QVERIFY(engine.painted());
            QVERIFY(engine.value(QStringLiteral("scrollY")).toInt() > 100);
        }
    }
};

QUELLORA_TEST_MAIN(runEngineTest<TestPageRapidLoads>)

#include "test_page_rapid_loads.moc"
