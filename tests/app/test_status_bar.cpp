#include "app/QtStatusBar.h"
#include "fakes/FakePlatform.h"
#include "support/TestProgram.h"

#include <QApplication>
#include <QTest>

using namespace quellora;

namespace {

QImage testImage()
{
    QImage image(16, 16, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    return image;
}

} // namespace

class TestStatusBar : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void bundledSymbolsAreTheFallback()
    {
        FakeStatusArea area;
        FakeSymbols symbols;
        const auto item = QtStatusBar(area, symbols).makeItem();
        QVERIFY(item->setSymbol("gear", "Quellora"));
        QVERIFY(!item->setSymbol("bolt", "Quellora"));
        QVERIFY(!item->setSymbol(QString(), "Quellora"));
    }

    void usesSystemSymbols()
    {
        FakeStatusArea area;
        FakeSymbols symbols;
        symbols.images.insert("bolt", testImage());
        const auto item = QtStatusBar(area, symbols).makeItem();
        QVERIFY(item->setSymbol("bolt", "Quellora"));
        QVERIFY(!item->setSymbol("leaf", "Quellora"));
    }

    void hasButtonOnlyWithStatusArea()
    {
        FakeStatusArea area;
        FakeSymbols symbols;
        const auto item = QtStatusBar(area, symbols).makeItem();
        QVERIFY(item->hasButton());
        area.available = false;
        QVERIFY(!item->hasButton());
    }
};

QUELLORA_TEST(QApplication, TestStatusBar)
#include "test_status_bar.moc"
