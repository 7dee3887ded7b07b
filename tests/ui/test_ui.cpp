#include "UiStage.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "support/TestProgram.h"
#include "ui/IconItem.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

class TestUi : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void fontsAreBundled();
    void windowsHaveApplicationIcon();
    void tokens();
    void iconIsTintedAndSharp();
    void iconFillAndStroke();
    void missingIconIsLoggedOnce();
    void usageBarTiers();
    void thumbnailShowsPlaceholderOnError();
    void textFieldShowsFocusAndError();
    void passwordIsHiddenFromAssistiveTechnology();
    void assistiveTechnologyCanEditTextField();
    void assistiveTechnologyCannotEditReadOnlyField();
    void labelsShowMarkupAsText();
    void reducedMotionStopsSpinner();
    void motionFollowsSystemPreference();
    void appearanceMayOutliveEngine();
};

void TestUi::fontsAreBundled()
{
    QVERIFY(QFontDatabase::families().contains(QStringLiteral("Inter")));
    QVERIFY(QFontDatabase::families().contains(QStringLiteral("JetBrains Mono")));
    QCOMPARE(QFontInfo(QGuiApplication::font()).family(), QStringLiteral("Inter"));
}

void TestUi::windowsHaveApplicationIcon()
{
    const QImage icon = QGuiApplication::windowIcon().pixmap(QSize(64, 64)).toImage();
    QCOMPARE(icon.size(), QSize(64, 64));
    QCOMPARE(icon.pixelColor(1, 1).alpha(), 0);
    // The panel has the accent colour, its lines are white.
    const QColor panel = icon.pixelColor(24, 48);
    QVERIFY2(panel.blue() > 180 && panel.red() < 80, qPrintable(panel.name()));
    QCOMPARE(icon.pixelColor(36, 34).name(), QStringLiteral("#ffffff"));
}

void TestUi::tokens()
{
    Stage stage(R"(
        property color frame: Tokens.frame.background
        property color dark: Tokens.sheet(true).background
        property color light: Tokens.sheet(false).background
        property color login: Tokens.login.background
        property color field: Tokens.login.input
        property color border: Tokens.login.outline
        property color label: Tokens.login.dimText
        property color blue: Tokens.login.accentFill
        property color red: Tokens.login.dangerText
        property color muted: Tokens.login.muted
        property int heading: Tokens.heading.size)");
    const auto color = [&](const char *name) { return stage.root->property(name).value<QColor>(); };
    QCOMPARE(color("frame").rgb(), QColor(0x12, 0x12, 0x1c).rgb());
    QCOMPARE(qRound(color("frame").alphaF() * 100), 97);
    QCOMPARE(color("dark").name(), QStringLiteral("#1c1e24"));
    QCOMPARE(color("light").name(), QStringLiteral("#f7f5f0"));
    QCOMPARE(color("login").name(), QStringLiteral("#131313"));
    QCOMPARE(color("field").name(), QStringLiteral("#1a1a1a"));
    QCOMPARE(color("border").name(), QStringLiteral("#2a2a2a"));
    QCOMPARE(color("label").name(), QStringLiteral("#888888"));
    QCOMPARE(color("blue").name(), QStringLiteral("#2f80ed"));
    QCOMPARE(color("red").name(), QStringLiteral("#e04c3c"));
    QCOMPARE(color("muted").name(), QStringLiteral("#646464"));
    QCOMPARE(stage.count("heading"), 26);
}

void TestUi::iconIsTintedAndSharp()
{
    IconItem icon;
    icon.setName(QStringLiteral("plus"));
    icon.setColor(QColor(255, 0, 0));
    const QImage small = icon.render(16);
    const QImage large = icon.render(32);
    QCOMPARE(large.size(), QSize(32, 32));
    // The centre of the cross has the tint, the corner is transparent.
    QCOMPARE(large.pixelColor(16, 16), QColor(255, 0, 0));
    QCOMPARE(qAlpha(large.pixel(1, 1)), 0);
    QVERIFY(large != small.scaled(32, 32));
    icon.setColor(QColor(0, 255, 0, 128));
    QCOMPARE(icon.render(32).pixelColor(16, 16).alpha(), 128);
}

void TestUi::iconFillAndStroke()
{
    IconItem icon;
    icon.setName(QStringLiteral("triangle-alert"));
    icon.setColor(Qt::white);
    const int inside = qAlpha(icon.render(48).pixel(17, 34));
    QCOMPARE(inside, 0);
    icon.setFillOpacity(0.22);
    const int filled = qAlpha(icon.render(48).pixel(17, 34));
    QVERIFY(qAbs(filled - qRound(0.22 * 255)) <= 2);

    icon.setName(QStringLiteral("plus"));
    icon.setFillOpacity(0);
    const auto alphaSum = [](const QImage &image) {
        int sum = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                sum += qAlpha(image.pixel(x, y));
        }
        return sum;
    };
    const int thin = alphaSum(icon.render(48));
    icon.setStrokeWidth(2.75);
    QVERIFY(alphaSum(icon.render(48)) > thin * 5 / 4);
}

void TestUi::missingIconIsLoggedOnce()
{
    const LogCapture log;
    IconItem icon;
    icon.setName(QStringLiteral("no-such-icon"));
    QVERIFY(icon.render(16).allGray());
    icon.render(17);
    QCOMPARE(log.lines,
             QStringList{QStringLiteral(
                 "[Icon] WARNING: :/quellora/icons/no-such-icon.svg could not be read")});
}

void TestUi::usageBarTiers()
{
    Stage stage("UsageBar { objectName: 'it' }");
    QQuickItem *bar = stage.item(QStringLiteral("it"));
    const auto fill = [&](double fraction) {
        bar->setProperty("fraction", fraction);
        return bar->property("fill").value<QColor>().name();
    };
    QCOMPARE(fill(0.79), QStringLiteral("#2f80ed"));
    QCOMPARE(fill(0.80), QStringLiteral("#e6a660"));
    QCOMPARE(fill(0.949), QStringLiteral("#e6a660"));
    QCOMPARE(fill(0.95), QStringLiteral("#e53935"));
    QCOMPARE(fill(1.4), QStringLiteral("#e53935"));
    QCOMPARE(bar->property("shownFraction").toDouble(), 1.0);
    bar->setProperty("fraction", 0.3);
    bar->setProperty("exceeded", true);
    QCOMPARE(bar->property("shownFraction").toDouble(), 1.0);
    QCOMPARE(fill(0.3), QStringLiteral("#e53935"));
}

void TestUi::thumbnailShowsPlaceholderOnError()
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("Cannot open")));
    Stage stage("Thumbnail { objectName: 'it'; source: 'file:///nowhere/at/all.png' }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QCOMPARE(QSizeF(it->width(), it->height()), QSizeF(72, 45));
    QTRY_VERIFY(findItem(it, "name", QStringLiteral("camera"))->isVisible());
    it->setProperty("compact", true);
    QCOMPARE(QSizeF(it->width(), it->height()), QSizeF(44, 28));
}

void TestUi::textFieldShowsFocusAndError()
{
    Stage stage("TextField { objectName: 'it'; name: 'Hex' }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    const auto border = [&](const char *name) {
        return it->property("background")
            .value<QQuickItem *>()
            ->property("border")
            .value<QObject *>()
            ->property(name);
    };
    QCOMPARE(it->height(), 32);
    QCOMPARE(border("width").toInt(), 1);
    click(it);
    QCOMPARE(border("width").toInt(), 2);
    QCOMPARE(border("color").value<QColor>().name(), QStringLiteral("#2f80ed"));
    it->setProperty("failed", true);
    QCOMPARE(border("color").value<QColor>().name(), QStringLiteral("#ff8a80"));
}

void TestUi::passwordIsHiddenFromAssistiveTechnology()
{
    Stage stage("TextField { objectName: 'it'; name: 'Password'; echoMode: TextInput.Password }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    it->setProperty("text", QStringLiteral("secret"));
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    const QString bullets(6, QChar(0x2022));
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Password"));
    QCOMPARE(accessible->text(QAccessible::Value), bullets);
    QVERIFY(accessible->state().passwordEdit);
    QAccessibleTextInterface *text = accessible->textInterface();
    QCOMPARE(text->characterCount(), 6);
    QCOMPARE(text->text(0, 6), bullets);
    int start = 0;
    int end = 0;
    for (const auto boundary : {QAccessible::CharBoundary, QAccessible::WordBoundary,
                                QAccessible::LineBoundary, QAccessible::NoBoundary}) {
        for (const QString &part : {text->textAtOffset(2, boundary, &start, &end),
                                    text->textBeforeOffset(5, boundary, &start, &end),
                                    text->textAfterOffset(0, boundary, &start, &end)})
            QVERIFY(part.count(QChar(0x2022)) == part.size());
    }
}

void TestUi::assistiveTechnologyCanEditTextField()
{
    Stage stage("TextField { objectName: 'it'; name: 'Search threads'; hint: 'Titles only' }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QCOMPARE(accessible->text(QAccessible::Description), QStringLiteral("Titles only"));
    accessible->editableTextInterface()->insertText(0, QStringLiteral("hello world"));
    QCOMPARE(it->property("text").toString(), QStringLiteral("hello world"));
    accessible->editableTextInterface()->deleteText(0, 6);
    QCOMPARE(it->property("text").toString(), QStringLiteral("world"));
    accessible->setText(QAccessible::Value, QStringLiteral("again"));
    QCOMPARE(it->property("text").toString(), QStringLiteral("again"));
    accessible->textInterface()->setCursorPosition(2);
    QCOMPARE(accessible->textInterface()->cursorPosition(), 2);
    accessible->textInterface()->addSelection(1, 3);
    int start = 0;
    int end = 0;
    accessible->textInterface()->selection(0, &start, &end);
    QCOMPARE(start, 1);
    QCOMPARE(end, 3);
    QVERIFY(!it->hasActiveFocus());
    actions(it)->doAction(QAccessibleActionInterface::setFocusAction());
    QVERIFY(it->hasActiveFocus());
    QVERIFY(accessible->state().focused);
    QCOMPARE(accessible->rect(), QRect(it->mapToGlobal(QPointF(0, 0)).toPoint(), QSize(160, 32)));
    QCOMPARE(accessible->parent()->window(), &stage.window);
}

void TestUi::assistiveTechnologyCannotEditReadOnlyField()
{
    Stage stage("TextField { objectName: 'it'; text: 'kept'; readOnly: true }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QVERIFY(accessible->state().readOnly);
    accessible->editableTextInterface()->insertText(0, QStringLiteral("x"));
    accessible->editableTextInterface()->deleteText(0, 2);
    QCOMPARE(it->property("text").toString(), QStringLiteral("kept"));
}

void TestUi::labelsShowMarkupAsText()
{
    Stage stage("Label { objectName: 'it'; text: '<b>bold</b>' }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QCOMPARE(it->property("textFormat").toInt(), 0);
    QVERIFY(it->property("contentWidth").toDouble() > 50);
}

void TestUi::reducedMotionStopsSpinner()
{
    Stage stage(R"(Spinner { objectName: 'it' }
                   property bool reduced: Tokens.reducedMotion
                   function reduce(on) { Tokens.reducedMotion = on })");
    QQuickItem *ring = findItem(stage.item(QStringLiteral("it")), "source",
                                QUrl(QStringLiteral("qrc:/quellora/ui/spinner.svg")));
    QObject *animation = nullptr;
    for (QObject *child : ring->findChildren<QObject *>()) {
        if (child->inherits("QQuickRotationAnimator"))
            animation = child;
    }
    QVERIFY(animation);
    QVERIFY(animation->property("running").toBool());
    QMetaObject::invokeMethod(stage.root.get(), "reduce", Q_ARG(QVariant, true));
    QVERIFY(!animation->property("running").toBool());
    QMetaObject::invokeMethod(stage.root.get(), "reduce", Q_ARG(QVariant, false));
}

void TestUi::motionFollowsSystemPreference()
{
    FakeAppearance system;
    system.reducedMotion = true;
    Stage stage(R"(UsageBar { exceeded: true; objectName: 'bar' }
                   property int slide: Tokens.sheetShift + Tokens.menuShift
                   property int longestFade: Math.max(Tokens.hoverTime, Tokens.menuTime,
                                                      Tokens.sheetTime, Tokens.scrimTime))");
    QCOMPARE(stage.count("slide"), 28);
    QCOMPARE(stage.count("longestFade"), 200);
    QObject *pulse = nullptr;
    for (QObject *child : stage.item(QStringLiteral("bar"))->findChildren<QObject *>()) {
        if (child->inherits("QQuickSequentialAnimation"))
            pulse = child;
    }
    QVERIFY(pulse && pulse->property("running").toBool());
    QQuickItem *halo = stage.item(QStringLiteral("bar"))->childItems().constFirst();
    QTRY_VERIFY(halo->opacity() < 1);

    followMotion(stage.engine, system);
    QCOMPARE(stage.count("slide"), 0);
    QCOMPARE(stage.count("longestFade"), 80);
    QVERIFY(!pulse->property("running").toBool());
    // A stopped pulse is fully opaque, regardless of when it was stopped.
    QCOMPARE(halo->opacity(), 1.0);

    system.setReducesMotion(false);
    QCOMPARE(stage.count("slide"), 28);
    QVERIFY(pulse->property("running").toBool());
    system.setReducesMotion(true);
    QCOMPARE(stage.count("slide"), 0);
}

void TestUi::appearanceMayOutliveEngine()
{
    FakeAppearance system;
    {
        Stage stage("");
        followMotion(stage.engine, system);
    }
    system.setReducesMotion(true);
    Stage next("property int slide: Tokens.sheetShift");
    followMotion(next.engine, system);
    QCOMPARE(next.count("slide"), 0);
}

QUELLORA_TEST(QGuiApplication, TestUi)
#include "test_ui.moc"
