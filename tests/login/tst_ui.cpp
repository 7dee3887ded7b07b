#include "UiStage.h"
#include "fakes/LogCapture.h"
#include "ui/IconItem.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

namespace {

const QString press = QAccessibleActionInterface::pressAction();

} // namespace

class TestUi : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void facesAreBundled();
    void tokens();
    void iconIsTintedAndSharp();
    void iconFillAndStroke();
    void missingIconIsLoggedOnce();
    void pressing_data();
    void pressing();
    void disabledTakesNothing_data();
    void disabledTakesNothing();
    void blockedStillActs();
    void focusRingOnKeyboardFocusOnly();
    void clickLeavesTheFocusWhereItWas();
    void toggleReports();
    void toggleFollowsTheModel();
    void wholeToggleRowToggles();
    void sliderKeys();
    void sliderPointerAndAssistiveEdits();
    void sliderModelChangeIsNoEdit();
    void tooltipAfterADelay();
    void tooltipOnKeyboardFocusAtOnce();
    void tooltipSaysWhy();
    void tooltipOfADisabledControl();
    void tooltipStaysInsideTheWindow();
    void usageBarTiers();
    void thumbnailFailure();
    void textFieldShowsFocusAndError();
    void passwordIsHiddenFromTheBus();
    void textFieldCanBeEditedOverTheBus();
    void readOnlyFieldCannotBeEditedOverTheBus();
    void labelsShowMarkupAsText();
    void reducedMotionStopsTheSpinner();
};

void TestUi::facesAreBundled()
{
    QVERIFY(QFontDatabase::families().contains(QStringLiteral("Inter")));
    QVERIFY(QFontDatabase::families().contains(QStringLiteral("JetBrains Mono")));
    QCOMPARE(QFontInfo(QGuiApplication::font()).family(), QStringLiteral("Inter"));
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
    // The middle of the cross is the pure tint, the corner is empty.
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
    const auto ink = [](const QImage &image) {
        int sum = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                sum += qAlpha(image.pixel(x, y));
        }
        return sum;
    };
    const int thin = ink(icon.render(48));
    icon.setStrokeWidth(2.75);
    QVERIFY(ink(icon.render(48)) > thin * 5 / 4);
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

void TestUi::pressing_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::newRow("button") << QByteArray("Button { text: 'Name'");
    QTest::newRow("icon button") << QByteArray("IconButton { name: 'Name'; iconName: 'plus'");
}

void TestUi::pressing()
{
    QFETCH(QByteArray, type);
    Stage stage("property int presses: 0\n" + type +
                "; objectName: 'it'; onClicked: presses += 1 }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QCOMPARE(it->height(), 28);
    click(it);
    QCOMPARE(stage.count("presses"), 1);
    it->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Return);
    QCOMPARE(stage.count("presses"), 2);
    stage.press(Qt::Key_Enter);
    QCOMPARE(stage.count("presses"), 3);
    stage.press(Qt::Key_Space);
    QCOMPARE(stage.count("presses"), 4);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Name"));
    QCOMPARE(accessible->role(), QAccessible::Button);
    QCOMPARE(actions(it)->actionNames().count(press), 1);
    actions(it)->doAction(press);
    QCOMPARE(stage.count("presses"), 5);
}

void TestUi::disabledTakesNothing_data()
{
    pressing_data();
    QTest::newRow("toggle") << QByteArray("Toggle { text: 'Name'; onToggled: presses += 1");
}

void TestUi::disabledTakesNothing()
{
    QFETCH(QByteArray, type);
    Stage stage("property int presses: 0\n" + type +
                "; objectName: 'it'; enabled: false; onClicked: presses += 1 }");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    click(it);
    it->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Return);
    stage.press(Qt::Key_Space);
    actions(it)->doAction(press);
    actions(it)->doAction(QAccessibleActionInterface::toggleAction());
    QCOMPARE(stage.count("presses"), 0);
    QVERIFY(actions(it)->actionNames().isEmpty());
    QVERIFY(QAccessible::queryAccessibleInterface(it)->state().disabled);
}

void TestUi::blockedStillActs()
{
    Stage stage(R"(property int presses: 0
        IconButton { objectName: 'it'; name: 'Send'; iconName: 'arrow-up'; look: IconButton.Filled
                     blocked: true; blockedReason: 'Blocked: out of credits'
                     onClicked: presses += 1 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QCOMPARE(it->width(), 36);
    click(it);
    it->forceActiveFocus(Qt::TabFocusReason);
    QVERIFY(it->hasActiveFocus());
    stage.press(Qt::Key_Return);
    QCOMPARE(stage.count("presses"), 2);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Send"));
    QCOMPARE(accessible->text(QAccessible::Description), QStringLiteral("Blocked: out of credits"));
}

void TestUi::focusRingOnKeyboardFocusOnly()
{
    Stage stage(R"(Button { objectName: 'it'; text: 'A'; focusPolicy: Qt.StrongFocus
                            x: 50; y: 50 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    const auto ring = [&] { return findItem(it, "reach", 4); };
    QVERIFY(ring());
    click(it);
    QVERIFY(it->hasActiveFocus());
    QVERIFY(!ring()->isVisible());
    it->setFocus(false);
    stage.press(Qt::Key_Tab);
    QVERIFY(it->hasActiveFocus());
    QVERIFY(ring()->isVisible());
    QCOMPARE(areaOf(ring()), areaOf(it).adjusted(-4, -4, 4, 4));
}

void TestUi::clickLeavesTheFocusWhereItWas()
{
    Stage stage(R"(TextField { objectName: 'field'; focus: true }
                   Button { objectName: 'it'; text: 'A'; y: 60 })");
    stage.item(QStringLiteral("field"))->forceActiveFocus();
    click(stage.item(QStringLiteral("it")));
    QVERIFY(stage.item(QStringLiteral("field"))->hasActiveFocus());
}

void TestUi::toggleReports()
{
    Stage stage(R"(property int toggles: 0
        Toggle { objectName: 'it'; text: 'Save thread'; onToggled: toggles += 1 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QCOMPARE(accessible->role(), QAccessible::CheckBox);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Save thread"));
    QVERIFY(accessible->state().checkable);
    QVERIFY(!accessible->state().checked);
    actions(it)->doAction(QAccessibleActionInterface::toggleAction());
    QCOMPARE(stage.count("toggles"), 1);
    QVERIFY(accessible->state().checked);
    actions(it)->doAction(press);
    QCOMPARE(stage.count("toggles"), 2);
    it->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Return);
    QCOMPARE(stage.count("toggles"), 3);
    stage.press(Qt::Key_Space);
    QCOMPARE(stage.count("toggles"), 4);
    QVERIFY(!it->property("checked").toBool());
}

void TestUi::toggleFollowsTheModel()
{
    Stage stage(R"(property bool model: false
        Toggle { objectName: 'it'; text: 'A'; checked: model; onToggled: model = checked })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    click(it);
    QVERIFY(stage.root->property("model").toBool());
    stage.root->setProperty("model", false);
    QVERIFY(!it->property("checked").toBool());
}

void TestUi::wholeToggleRowToggles()
{
    Stage stage(R"(property int toggles: 0
        Toggle { objectName: 'it'; width: 300; text: 'A'; trailing: true; onToggled: toggles += 1 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    for (const int x : {3, 150, 297})
        QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(x, 14));
    QCOMPARE(stage.count("toggles"), 3);
    QCOMPARE(it->height(), 28);
}

void TestUi::sliderKeys()
{
    Stage stage(R"(property real model: 0.5
        Slider { objectName: 'it'; modelValue: model; onEdited: value => model = value })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    const auto model = [&] { return qRound(stage.root->property("model").toDouble() * 100); };
    it->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Right);
    QCOMPARE(model(), 51);
    stage.press(Qt::Key_Left);
    stage.press(Qt::Key_Left);
    QCOMPARE(model(), 49);
    stage.press(Qt::Key_Right, Qt::ShiftModifier);
    QCOMPARE(model(), 59);
    for (int i = 0; i < 7; ++i)
        stage.press(Qt::Key_Left, Qt::ShiftModifier);
    QCOMPARE(model(), 0);
}

void TestUi::sliderPointerAndAssistiveEdits()
{
    Stage stage(R"(property real model: 0.5
        Slider { objectName: 'it'; name: 'Opacity'; modelValue: model
                 onEdited: value => model = value })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QCOMPARE(QSizeF(it->width(), it->height()), QSizeF(140, 20));
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(133, 10));
    QCOMPARE(stage.root->property("model").toDouble(), 1.0);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(it);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Opacity"));
    QVERIFY(accessible->valueInterface());
    accessible->valueInterface()->setCurrentValue(0.35);
    QCOMPARE(stage.root->property("model").toDouble(), 0.35);
    actions(it)->doAction(QAccessibleActionInterface::increaseAction());
    QVERIFY(qAbs(stage.root->property("model").toDouble() - 0.36) < 0.001);
}

void TestUi::sliderModelChangeIsNoEdit()
{
    Stage stage(R"(property real model: 0.5
        property int edits: 0
        Slider { objectName: 'it'; modelValue: model; onEdited: edits += 1 })");
    stage.root->setProperty("model", 0.8);
    QCOMPARE(stage.item(QStringLiteral("it"))->property("value").toDouble(), 0.8);
    QCOMPARE(stage.count("edits"), 0);
}

void TestUi::tooltipAfterADelay()
{
    Stage stage(R"(IconButton { objectName: 'it'; name: 'Send'; iconName: 'plus'
                                shortcutText: 'Return'; x: 100; y: 60 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    QElapsedTimer clock;
    clock.start();
    QTest::mouseMove(&stage.window, areaOf(it).center().toPoint());
    QVERIFY(stage.texts().isEmpty());
    QTRY_COMPARE(stage.texts(), (QStringList{QStringLiteral("Send"), QStringLiteral("Return")}));
    QVERIFY(clock.elapsed() >= 480);
    QTest::mousePress(&stage.window, Qt::LeftButton, {}, areaOf(it).center().toPoint());
    QVERIFY(stage.texts().isEmpty());
    QTest::mouseRelease(&stage.window, Qt::LeftButton, {}, areaOf(it).center().toPoint());
    QCOMPARE(QGuiApplication::topLevelWindows().size(), 1);
}

void TestUi::tooltipOnKeyboardFocusAtOnce()
{
    Stage stage(
        R"(IconButton { objectName: 'it'; name: 'Menu'; iconName: 'menu'; x: 100; y: 60 })");
    stage.press(Qt::Key_Tab);
    QVERIFY(stage.item(QStringLiteral("it"))->hasActiveFocus());
    QCOMPARE(stage.texts(), QStringList{QStringLiteral("Menu")});
}

void TestUi::tooltipSaysWhy()
{
    Stage stage(R"(IconButton { name: 'Send'; iconName: 'plus'; blocked: true
                                blockedReason: 'Blocked: Credit Limit Reached'
                                shortcutText: 'Return'; x: 100; y: 60 })");
    stage.press(Qt::Key_Tab);
    QCOMPARE(stage.texts(), QStringList{QStringLiteral("Blocked: Credit Limit Reached")});
}

void TestUi::tooltipOfADisabledControl()
{
    Stage stage(R"(IconButton { objectName: 'it'; name: 'Send'; iconName: 'plus'; enabled: false
                                disabledReason: 'Send needs text in the box'; x: 100; y: 60 })");
    QTest::mouseMove(&stage.window, areaOf(stage.item(QStringLiteral("it"))).center().toPoint());
    QTRY_COMPARE(stage.texts(), QStringList{QStringLiteral("Send needs text in the box")});
}

void TestUi::tooltipStaysInsideTheWindow()
{
    Stage stage(R"(IconButton { name: 'A rather long name of a thing'; iconName: 'plus'
                                x: 372; y: 172 })");
    stage.press(Qt::Key_Tab);
    QQuickItem *bubble = findItem(stage.window.contentItem(), "gap", 6);
    QVERIFY(bubble);
    QVERIFY(QRectF(0, 0, 400, 200).contains(areaOf(bubble)));
    QVERIFY(areaOf(bubble).bottom() <= 172);
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

void TestUi::thumbnailFailure()
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

void TestUi::passwordIsHiddenFromTheBus()
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

void TestUi::textFieldCanBeEditedOverTheBus()
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

void TestUi::readOnlyFieldCannotBeEditedOverTheBus()
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

void TestUi::reducedMotionStopsTheSpinner()
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

QTEST_MAIN(TestUi)
#include "tst_ui.moc"
