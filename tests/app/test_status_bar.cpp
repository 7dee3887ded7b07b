#include "app/QtStatusBar.h"
#include "fakes/FakePlatform.h"
#include "support/TestProgram.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QPainter>
#include <QSvgRenderer>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace quellora;

namespace {

QImage testImage()
{
    QImage image(16, 16, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    return image;
}

/// Relative luminance as defined for the contrast of text.
double luminance(const QColor &color)
{
    const auto linear = [](double channel) {
        return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

/// Share of the pixels that differ from @p bar by a contrast of at least 3.
double contrastingShare(const QImage &image, const QColor &bar)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double a = luminance(image.pixelColor(x, y)) + 0.05;
            const double b = luminance(bar) + 0.05;
            count += std::max(a, b) / std::min(a, b) >= 3;
        }
    }
    return double(count) / (image.width() * image.height());
}

/// The icon of the item that is shown.
QIcon shownIcon()
{
    return QtStatusBar::symbolIcon(FakeSymbols(), QStringLiteral("gear"));
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

    void pictureStandsOutOnEveryBar_data()
    {
        QTest::addColumn<QColor>("bar");
        QTest::newRow("white") << QColor(Qt::white);
        QTest::newRow("light") << QColor(0xef, 0xf0, 0xf1);
        QTest::newRow("grey") << QColor(0x80, 0x80, 0x80);
        QTest::newRow("dark") << QColor(0x2a, 0x2e, 0x32);
        QTest::newRow("black") << QColor(Qt::black);
    }
    /// The pictures that trays without the symbol show.
    void pictureStandsOutOnEveryBar()
    {
        QFETCH(QColor, bar);
        const QIcon icon = shownIcon();
        for (const int size : {16, 22, 24, 32, 48}) {
            QImage image(size, size, QImage::Format_RGB32);
            image.fill(bar);
            QPainter painter(&image);
            painter.drawPixmap(0, 0, icon.pixmap(QSize(size, size), 1.0));
            painter.end();
            QCOMPARE(icon.pixmap(QSize(size, size), 1.0).width(), size);
            QVERIFY2(contrastingShare(image, bar) > 0.06,
                     qPrintable(QString::number(contrastingShare(image, bar))));
        }
    }

    void symbolIsNamedWhereTheDesktopRecoloursIt_data()
    {
        QTest::addColumn<QByteArray>("desktop");
        QTest::addColumn<bool>("isInstalled");
        QTest::addColumn<bool>("isNamed");
        QTest::newRow("KDE") << QByteArray("KDE") << true << true;
        QTest::newRow("GNOME") << QByteArray("GNOME") << true << true;
        QTest::newRow("variant of GNOME") << QByteArray("ubuntu:GNOME") << true << true;
        QTest::newRow("sway") << QByteArray("sway") << true << false;
        QTest::newRow("similar name") << QByteArray("KDEish") << true << false;
        QTest::newRow("none") << QByteArray() << true << false;
        QTest::newRow("not installed") << QByteArray("KDE") << false << false;
    }
    void symbolIsNamedWhereTheDesktopRecoloursIt()
    {
        QFETCH(QByteArray, desktop);
        QFETCH(bool, isInstalled);
        QFETCH(bool, isNamed);
        // A theme with the program's icon, to which the toolkit falls back for unknown symbols.
        QTemporaryDir icons;
        const auto install = [&icons](const QString &folder, const QString &name) {
            const QString path = icons.filePath(QStringLiteral("hicolor/") + folder);
            return QDir().mkpath(path) &&
                   QFile::copy(QStringLiteral(QUELLORA_ICONS "/") + name + QStringLiteral(".svg"),
                               path + QLatin1Char('/') + name + QStringLiteral(".svg"));
        };
        QVERIFY(install(QStringLiteral("scalable/apps"), QStringLiteral("quellora")));
        if (isInstalled)
            QVERIFY(install(QStringLiteral("symbolic/apps"), QStringLiteral("quellora-symbolic")));
        QFile index(icons.filePath(QStringLiteral("hicolor/index.theme")));
        QVERIFY(index.open(QIODevice::WriteOnly));
        index.write("[Icon Theme]\nName=hicolor\nDirectories=scalable/apps,symbolic/apps\n"
                    "[scalable/apps]\nSize=64\nMinSize=8\nMaxSize=512\nType=Scalable\n"
                    "[symbolic/apps]\nSize=16\nMinSize=8\nMaxSize=512\nType=Scalable\n");
        index.close();
        QIcon::setThemeSearchPaths({icons.path()});
        QIcon::setThemeName(QStringLiteral("hicolor"));
        qputenv("XDG_CURRENT_DESKTOP", desktop);

        const QIcon icon = shownIcon();
        QCOMPARE(icon.name(), isNamed ? QStringLiteral("quellora-symbolic") : QString());
        // A tray that does not know the name, or draws pixels only, gets the pictures.
        QVERIFY(icon.availableSizes().contains(QSize(22, 22)));
        QCOMPARE(icon.pixmap(QSize(22, 22), 1.0).size(), QSize(22, 22));
        qunsetenv("XDG_CURRENT_DESKTOP");
    }

    void symbolStandsOutInTheBarsColour_data()
    {
        QTest::addColumn<QColor>("bar");
        QTest::addColumn<QByteArray>("color");
        QTest::newRow("light bar") << QColor(0xef, 0xf0, 0xf1) << QByteArray("#232629");
        QTest::newRow("dark bar") << QColor(0x2a, 0x2e, 0x32) << QByteArray("#fcfcfc");
    }
    void symbolStandsOutInTheBarsColour()
    {
        QFETCH(QColor, bar);
        QFETCH(QByteArray, color);
        QFile file(QStringLiteral(QUELLORA_ICONS "/quellora-symbolic.svg"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QByteArray svg = file.readAll();
        svg.replace("currentColor", color);
        for (const int size : {16, 22, 24, 32}) {
            QImage image(size, size, QImage::Format_RGB32);
            image.fill(bar);
            QPainter painter(&image);
            QSvgRenderer(svg).render(&painter);
            painter.end();
            QVERIFY(contrastingShare(image, bar) > 0.3);
            // The hole in the middle is left open.
            QCOMPARE(image.pixelColor(size / 2, size / 2), bar);
        }
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
