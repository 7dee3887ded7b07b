#include "fakes/FakePlatform.h"
#include "page/AppTheme.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

class TestPageTheme : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsDark();
    void followsTheDesktopInSystemModeOnly();
    void handlerOutlivesNothing();
    void layerColors();
};

void TestPageTheme::startsDark()
{
    FakeAppearance desktop;
    desktop.dark = false;
    const ThemeController theme(desktop);
    QCOMPARE(theme.appliedTheme(), AppTheme::Dark);
    QCOMPARE(theme.currentSystemTheme(), AppTheme::Light);
}

void TestPageTheme::followsTheDesktopInSystemModeOnly()
{
    FakeAppearance desktop;
    desktop.dark = false;
    ThemeController theme(desktop);
    QSignalSpy applied(&theme, &ThemeController::themeApplied);
    theme.setMode(Settings::Appearance::System);
    QCOMPARE(theme.appliedTheme(), AppTheme::Light);
    QCOMPARE(applied.size(), 1);

    desktop.setDark(true);
    QCOMPARE(theme.appliedTheme(), AppTheme::Dark);
    QCOMPARE(applied.size(), 2);

    theme.setMode(Settings::Appearance::Light);
    QCOMPARE(theme.appliedTheme(), AppTheme::Light);
    desktop.setDark(false);
    desktop.setDark(true);
    QCOMPARE(applied.size(), 3);
    QCOMPARE(theme.appliedTheme(), AppTheme::Light);

    theme.setMode(Settings::Appearance::Dark);
    QCOMPARE(theme.appliedTheme(), AppTheme::Dark);
}

void TestPageTheme::handlerOutlivesNothing()
{
    FakeAppearance desktop;
    {
        ThemeController theme(desktop);
        theme.setMode(Settings::Appearance::System);
    }
    desktop.setDark(!desktop.dark);
    QVERIFY(desktop.handler);
}

void TestPageTheme::layerColors()
{
    QCOMPARE(responseBackdropColor(AppTheme::Dark).name(), QStringLiteral("#1c1e24"));
    QCOMPARE(responseBackdropColor(AppTheme::Light).name(), QStringLiteral("#f7f5f0"));
    QVERIFY(qAbs(responseBackdropColor(AppTheme::Light).alphaF() - 0.93F) < 0.001F);
    const QColor border = responseLeftBorderColor();
    QVERIFY(qAbs(border.redF() - 0.07F) < 0.001F);
    QVERIFY(qAbs(border.blueF() - 0.11F) < 0.001F);
    QVERIFY(qAbs(border.alphaF() - 0.9F) < 0.001F);
}

QUELLORA_TEST(QCoreApplication, TestPageTheme)
#include "test_page_theme.moc"
