#include "UiStage.h"
#include "support/TestProgram.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QtTest>

using namespace quellora;

namespace {

const QString press = QAccessibleActionInterface::pressAction();

} // namespace

class TestUiControls : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void buttonActivation_data();
    void buttonActivation();
    void disabledControlIgnoresInput_data();
    void disabledControlIgnoresInput();
    void blockedButtonEmitsClicked();
    void focusRingOnKeyboardFocusOnly();
    void clickDoesNotMoveFocus();
    void caretStopsBlinking();
    void toggleEmitsToggled();
    void toggleFollowsModel();
    void wholeRowToggles();
    void sliderKeyboardSteps();
    void sliderPointerAndAccessibilityEdits();
    void sliderModelChangeDoesNotEmitEdited();
    void tooltipAppearsAfterDelay();
    void tooltipAppearsImmediatelyOnKeyboardFocus();
    void tooltipShowsBlockedReason();
    void tooltipShowsDisabledReason();
    void tooltipStaysInsideWindow();
};

void TestUiControls::buttonActivation_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::newRow("button") << QByteArray("Button { text: 'Name'");
    QTest::newRow("icon button") << QByteArray("IconButton { name: 'Name'; iconName: 'plus'");
}

void TestUiControls::buttonActivation()
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

void TestUiControls::disabledControlIgnoresInput_data()
{
    buttonActivation_data();
    QTest::newRow("toggle") << QByteArray("Toggle { text: 'Name'; onToggled: presses += 1");
}

void TestUiControls::disabledControlIgnoresInput()
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

void TestUiControls::blockedButtonEmitsClicked()
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

void TestUiControls::focusRingOnKeyboardFocusOnly()
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

void TestUiControls::clickDoesNotMoveFocus()
{
    Stage stage(R"(TextField { objectName: 'field'; focus: true }
                   Button { objectName: 'it'; text: 'A'; y: 60 })");
    stage.item(QStringLiteral("field"))->forceActiveFocus();
    click(stage.item(QStringLiteral("it")));
    QVERIFY(stage.item(QStringLiteral("field"))->hasActiveFocus());
}

void TestUiControls::caretStopsBlinking()
{
    Stage stage(R"(TextField { objectName: 'field'; focus: true })");
    stage.item(QStringLiteral("field"))->forceActiveFocus();
    QQuickItem *caret = findItem(stage.root.get(), "blinksLeft", 20);
    QVERIFY(caret);
    caret->setProperty("blinksLeft", 1);
    QTRY_COMPARE(caret->property("blinksLeft").toInt(), 0);
    QVERIFY(caret->property("on").toBool());
    stage.press(Qt::Key_A);
    QCOMPARE(caret->property("blinksLeft").toInt(), 20);
}

void TestUiControls::toggleEmitsToggled()
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

void TestUiControls::toggleFollowsModel()
{
    Stage stage(R"(property bool model: false
        Toggle { objectName: 'it'; text: 'A'; checked: model; onToggled: model = checked })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    click(it);
    QVERIFY(stage.root->property("model").toBool());
    stage.root->setProperty("model", false);
    QVERIFY(!it->property("checked").toBool());
}

void TestUiControls::wholeRowToggles()
{
    Stage stage(R"(property int toggles: 0
        Toggle { objectName: 'it'; width: 300; text: 'A'; trailing: true; onToggled: toggles += 1 })");
    QQuickItem *it = stage.item(QStringLiteral("it"));
    for (const int x : {3, 150, 297})
        QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(x, 14));
    QCOMPARE(stage.count("toggles"), 3);
    QCOMPARE(it->height(), 28);
}

void TestUiControls::sliderKeyboardSteps()
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

void TestUiControls::sliderPointerAndAccessibilityEdits()
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

void TestUiControls::sliderModelChangeDoesNotEmitEdited()
{
    Stage stage(R"(property real model: 0.5
        property int edits: 0
        Slider { objectName: 'it'; modelValue: model; onEdited: edits += 1 })");
    stage.root->setProperty("model", 0.8);
    QCOMPARE(stage.item(QStringLiteral("it"))->property("value").toDouble(), 0.8);
    QCOMPARE(stage.count("edits"), 0);
}

void TestUiControls::tooltipAppearsAfterDelay()
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

void TestUiControls::tooltipAppearsImmediatelyOnKeyboardFocus()
{
    Stage stage(
        R"(IconButton { objectName: 'it'; name: 'Menu'; iconName: 'menu'; x: 100; y: 60 })");
    stage.press(Qt::Key_Tab);
    QVERIFY(stage.item(QStringLiteral("it"))->hasActiveFocus());
    QCOMPARE(stage.texts(), QStringList{QStringLiteral("Menu")});
}

void TestUiControls::tooltipShowsBlockedReason()
{
    Stage stage(R"(IconButton { name: 'Send'; iconName: 'plus'; blocked: true
                                blockedReason: 'Blocked: Credit Limit Reached'
                                shortcutText: 'Return'; x: 100; y: 60 })");
    stage.press(Qt::Key_Tab);
    QCOMPARE(stage.texts(), QStringList{QStringLiteral("Blocked: Credit Limit Reached")});
}

void TestUiControls::tooltipShowsDisabledReason()
{
    Stage stage(R"(IconButton { objectName: 'it'; name: 'Send'; iconName: 'plus'; enabled: false
                                disabledReason: 'Send needs text in the box'; x: 100; y: 60 })");
    QTest::mouseMove(&stage.window, areaOf(stage.item(QStringLiteral("it"))).center().toPoint());
    QTRY_COMPARE(stage.texts(), QStringList{QStringLiteral("Send needs text in the box")});
}

void TestUiControls::tooltipStaysInsideWindow()
{
    Stage stage(R"(IconButton { name: 'A rather long name of a thing'; iconName: 'plus'
                                x: 372; y: 172 })");
    stage.press(Qt::Key_Tab);
    QQuickItem *bubble = findItem(stage.window.contentItem(), "gap", 6);
    QVERIFY(bubble);
    QVERIFY(QRectF(0, 0, 400, 200).contains(areaOf(bubble)));
    QVERIFY(areaOf(bubble).bottom() <= 172);
}

QUELLORA_TEST(QGuiApplication, TestUiControls)
#include "test_ui_controls.moc"
