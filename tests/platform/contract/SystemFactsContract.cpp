#include "platform/contract/SystemFactsContract.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

namespace quellora {

void SystemFactsContract::osVersionIsOneLine()
{
    const QString version = platform().deviceInfo().osVersion();
    QVERIFY(!version.isEmpty());
    QCOMPARE(version, version.simplified());
    QCOMPARE(platform().deviceInfo().osVersion(), version);
}

void SystemFactsContract::cpuArchIsKnown()
{
    const QString arch = platform().deviceInfo().cpuArch();
    QVERIFY2(arch == QStringLiteral("arm64") || arch == QStringLiteral("x86_64"), qPrintable(arch));
}

void SystemFactsContract::captureToolHasFixedArguments()
{
    const CaptureTool tool = platform().captureTool();
    QVERIFY2(QDir::isAbsolutePath(tool.program), qPrintable(tool.program));
    QCOMPARE(tool.arguments, (QStringList{QStringLiteral("-x"), QStringLiteral("-C")}));
}

void SystemFactsContract::captureToolExists()
{
    CONTRACT_REQUIRES(Ability::FindCaptureTool);
    const QFileInfo tool(harness().installedPath(platform().captureTool().program));
    QVERIFY2(tool.isFile() && tool.isExecutable(), qPrintable(tool.filePath()));
}

void SystemFactsContract::screenLayoutHoldsTheFirstScreens()
{
    const QList<QRect> places = platform().screenLayout().screens;
    const QList<QScreen *> screens = QGuiApplication::screens();
    QVERIFY(!places.isEmpty());
    QVERIFY(places.size() <= screens.size());
    for (qsizetype i = 0; i < places.size(); ++i) {
        // Points or pixels.
        const QSizeF points = screens.at(i)->size();
        QVERIFY(!places.at(i).isEmpty());
        QVERIFY2(qAbs(places.at(i).width() * points.height() -
                      places.at(i).height() * points.width()) <= points.width() + points.height(),
                 "the shape is another one");
        for (qsizetype other = 0; other < i; ++other)
            QVERIFY(places.at(i) == places.at(other) || !places.at(i).intersects(places.at(other)));
    }
}

void SystemFactsContract::supportDirectoryIsAbsoluteAndNotCreated()
{
    const QString path = platform().applicationSupportDirectory();
    QVERIFY2(QDir::isAbsolutePath(path), qPrintable(path));
    QCOMPARE(path, QDir::cleanPath(path));
    const bool before = QFileInfo::exists(path);
    QCOMPARE(platform().applicationSupportDirectory(), path);
    QCOMPARE(QFileInfo::exists(path), before);
}

void SystemFactsContract::unknownSymbolsAreNull()
{
    for (const QString &name : {QString(), QStringLiteral("no.such.symbol.anywhere")}) {
        QVERIFY(platform().symbols().image(name, 16, 1).isNull());
        QVERIFY(platform().symbols().image(name, 16, 2).isNull());
    }
}

void SystemFactsContract::symbolsAreRenderedAtScale()
{
    CONTRACT_REQUIRES(Ability::RenderSymbols);
    const QImage single = platform().symbols().image(harness().symbolName(), 32, 1);
    const QImage twice = platform().symbols().image(harness().symbolName(), 32, 2);
    QVERIFY(!single.isNull());
    QVERIFY(single.hasAlphaChannel());
    // Fractions of a point may be rounded up or down.
    QVERIFY(qAbs(twice.width() - 2 * single.width()) <= 2);
    QVERIFY(qAbs(twice.height() - 2 * single.height()) <= 2);
    bool drawn = false;
    for (int y = 0; y < twice.height(); ++y) {
        for (int x = 0; x < twice.width(); ++x)
            drawn = drawn || twice.pixelColor(x, y).alpha() > 128;
    }
    QVERIFY2(drawn, "the symbol must not be empty");
}

} // namespace quellora
