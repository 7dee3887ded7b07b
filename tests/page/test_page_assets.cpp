#include "BundledFonts.h"
#include "support/TestProgram.h"

#include <QFile>
#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QTest>

using namespace quellora;

class TestPageAssets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageFilesAreThere_data();
    void pageFilesAreThere();
    void iconsAreSvg_data();
    void iconsAreSvg();
    void facesLoadAsFamilies();
};

void TestPageAssets::pageFilesAreThere_data()
{
    QTest::addColumn<QByteArray>("marker");
    QTest::newRow("marked.js") << QByteArray("marked v18.2.1");
    QTest::newRow("highlight.min.js") << QByteArray("Highlight.js v11.12.0");
    QTest::newRow("github.min.css") << QByteArray(".hljs");
    QTest::newRow("github-dark.min.css") << QByteArray(".hljs");
    QTest::newRow("purify.min.js") << QByteArray("DOMPurify");
}

void TestPageAssets::pageFilesAreThere()
{
    QFETCH(QByteArray, marker);
    QFile file(QStringLiteral(":/quellora/page/") + QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains(marker));
}

void TestPageAssets::iconsAreSvg_data()
{
    QTest::addColumn<int>("row");
    for (const char *name : {"settings",
                             "camera",
                             "arrow-up",
                             "x",
                             "plus",
                             "hard-drive",
                             "chevron-up",
                             "chevron-down",
                             "chevron-right",
                             "triangle-alert",
                             "history",
                             "circle-user",
                             "circle-arrow-up",
                             "search",
                             "pencil",
                             "trash-2",
                             "menu",
                             "square-pen",
                             "image-plus",
                             "blend",
                             "square",
                             "copy",
                             "check",
                             "info",
                             "lock",
                             "keyboard",
                             "rotate-ccw",
                             "arrow-up-right",
                             "sun",
                             "moon",
                             "monitor",
                             "mouse-pointer-click"})
        QTest::newRow(name) << 0;
}

void TestPageAssets::iconsAreSvg()
{
    QFile file(
        QStringLiteral(":/quellora/icons/%1.svg").arg(QLatin1StringView(QTest::currentDataTag())));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray svg = file.readAll();
    QVERIFY(svg.contains("<svg"));
    QVERIFY(svg.contains("currentColor"));
}

void TestPageAssets::facesLoadAsFamilies()
{
    QVERIFY(loadBundledFonts());
    for (const int weight : {400, 500, 600}) {
        QFont font(QStringLiteral("Inter"));
        font.setWeight(static_cast<QFont::Weight>(weight));
        QCOMPARE(QFontInfo(font).family(), QStringLiteral("Inter"));
        QCOMPARE(QFontInfo(font).weight(), weight);
    }
    QVERIFY(QFontDatabase::families().contains(QStringLiteral("JetBrains Mono")));
}

QUELLORA_TEST(QGuiApplication, TestPageAssets)
#include "test_page_assets.moc"
