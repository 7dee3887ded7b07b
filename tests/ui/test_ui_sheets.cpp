#include "UiStage.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QtTest>

using namespace quellora;

namespace {

const QByteArray dialogQml = R"(
    property int confirmations: 0
    property int cancellations: 0
    TextField { objectName: 'behind'; focus: true }
    Dialog { objectName: 'it'; title: 'Delete this thread?'; text: 'It cannot be undone.'
             confirmText: 'Delete'
             onConfirmed: confirmations += 1
             onCancelled: cancellations += 1 })";

QQuickItem *buttonWithText(Stage &stage, const QString &text)
{
    return findItem(stage.item(QStringLiteral("it")), "text", text);
}

} // namespace

class TestUiSheets : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void dialogInitiallyFocusesCancel();
    void dialogTrapsTab();
    void escapeAndScrimCancelDialog();
    void dialogBlocksClicksBehindIt();
    void dialogConfirms();
    void dialogInSheetTrapsTab();
    void sheetSlidesAndFades();
    void sheetTrapsTab();
    void sheetEmitsCloseRequested();
    void rowActivationAndSelection();
    void chipStates();
};

void TestUiSheets::dialogInitiallyFocusesCancel()
{
    Stage stage(dialogQml);
    QQuickItem *dialog = stage.item(QStringLiteral("it"));
    QVERIFY(!dialog->isVisible());
    dialog->setProperty("open", true);
    QVERIFY(buttonWithText(stage, QStringLiteral("Cancel"))->hasActiveFocus());
    QCOMPARE(buttonWithText(stage, QStringLiteral("Cancel"))->height(), 32);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(dialog);
    QCOMPARE(accessible->role(), QAccessible::Dialog);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Delete this thread?"));
    stage.press(Qt::Key_Return);
    QCOMPARE(stage.count("cancellations"), 1);
    QCOMPARE(stage.count("confirmations"), 0);
}

void TestUiSheets::dialogTrapsTab()
{
    Stage stage(dialogQml);
    stage.item(QStringLiteral("it"))->setProperty("open", true);
    QQuickItem *cancel = buttonWithText(stage, QStringLiteral("Cancel"));
    QQuickItem *confirm = buttonWithText(stage, QStringLiteral("Delete"));
    QVERIFY(cancel->hasActiveFocus());
    stage.press(Qt::Key_Tab);
    QVERIFY(confirm->hasActiveFocus());
    stage.press(Qt::Key_Tab);
    QVERIFY(cancel->hasActiveFocus());
    stage.press(Qt::Key_Tab, Qt::ShiftModifier);
    QVERIFY(confirm->hasActiveFocus());
}

void TestUiSheets::escapeAndScrimCancelDialog()
{
    Stage stage(dialogQml);
    stage.item(QStringLiteral("it"))->setProperty("open", true);
    stage.press(Qt::Key_Escape);
    QCOMPARE(stage.count("cancellations"), 1);
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(5, 195));
    QCOMPARE(stage.count("cancellations"), 2);
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(60, 100));
    QCOMPARE(stage.count("cancellations"), 2);
}

void TestUiSheets::dialogBlocksClicksBehindIt()
{
    Stage stage("property int presses: 0\nButton { text: 'Behind'; onClicked: presses += 1 }\n"
                "Dialog { open: true; title: 'T'; confirmText: 'Delete' }");
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(10, 10));
    QCOMPARE(stage.count("presses"), 0);
}

void TestUiSheets::dialogConfirms()
{
    Stage stage(dialogQml);
    stage.item(QStringLiteral("it"))->setProperty("open", true);
    click(buttonWithText(stage, QStringLiteral("Delete")));
    QCOMPARE(stage.count("confirmations"), 1);
    QCOMPARE(stage.count("cancellations"), 0);
}

void TestUiSheets::dialogInSheetTrapsTab()
{
    Stage stage(R"(SheetHost { anchors.fill: parent; open: true
        Button { objectName: 'a'; text: 'A' }
        Dialog { objectName: 'it'; title: 'T'; confirmText: 'Delete' } })");
    stage.item(QStringLiteral("it"))->setProperty("open", true);
    for (int i = 0; i < 4; ++i) {
        stage.press(Qt::Key_Tab);
        QVERIFY(!stage.item(QStringLiteral("a"))->hasActiveFocus());
    }
    QVERIFY(buttonWithText(stage, QStringLiteral("Cancel"))->hasActiveFocus());
}

void TestUiSheets::sheetSlidesAndFades()
{
    Stage stage(R"(SheetHost { objectName: 'it'; anchors.fill: parent; panelWidth: 300
                               Item { objectName: 'inside'; anchors.fill: parent } })");
    QQuickItem *sheet = stage.item(QStringLiteral("it"));
    QQuickItem *inside = stage.item(QStringLiteral("inside"));
    QVERIFY(!sheet->isVisible());
    sheet->setProperty("open", true);
    QTRY_VERIFY(sheet->property("progress").toDouble() > 0);
    QVERIFY(sheet->isVisible());
    QTRY_COMPARE(sheet->property("progress").toDouble(), 1.0);
    QCOMPARE(areaOf(inside), QRectF(0, 0, 300, 200));
    sheet->setProperty("open", false);
    QVERIFY(!sheet->isEnabled());
    QTRY_VERIFY(!sheet->isVisible());
}

void TestUiSheets::sheetTrapsTab()
{
    Stage stage(R"(TextField { objectName: 'behind' }
        SheetHost { objectName: 'it'; anchors.fill: parent; open: true
            Column { Button { objectName: 'a'; text: 'A' } Button { objectName: 'b'; text: 'B' } } })");
    stage.item(QStringLiteral("a"))->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Tab);
    QVERIFY(stage.item(QStringLiteral("b"))->hasActiveFocus());
    stage.press(Qt::Key_Tab);
    QVERIFY(stage.item(QStringLiteral("a"))->hasActiveFocus());
    stage.press(Qt::Key_Tab, Qt::ShiftModifier);
    QVERIFY(stage.item(QStringLiteral("b"))->hasActiveFocus());
}

void TestUiSheets::sheetEmitsCloseRequested()
{
    Stage stage(R"(property int requests: 0
        SheetHost { objectName: 'it'; anchors.fill: parent; panelWidth: 200; open: true
                    onCloseRequested: requests += 1
                    Button { objectName: 'a'; text: 'A' } })");
    QTRY_COMPARE(stage.item(QStringLiteral("it"))->property("progress").toDouble(), 1.0);
    stage.item(QStringLiteral("a"))->forceActiveFocus();
    stage.press(Qt::Key_Escape);
    QCOMPARE(stage.count("requests"), 1);
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(300, 100));
    QCOMPARE(stage.count("requests"), 2);
    QTest::mouseClick(&stage.window, Qt::LeftButton, {}, QPoint(100, 150));
    QCOMPARE(stage.count("requests"), 2);
    QVERIFY(stage.item(QStringLiteral("it"))->property("open").toBool());
}

void TestUiSheets::rowActivationAndSelection()
{
    Stage stage(R"(property int presses: 0
        ListRow { objectName: 'it'; width: 300; implicitHeight: 44; name: 'Balanced'; selected: true
                  onClicked: presses += 1
                  Label { text: 'Balanced' } })");
    QQuickItem *row = stage.item(QStringLiteral("it"));
    click(row);
    row->forceActiveFocus(Qt::TabFocusReason);
    stage.press(Qt::Key_Return);
    actions(row)->doAction(QAccessibleActionInterface::pressAction());
    QCOMPARE(stage.count("presses"), 3);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(row);
    QCOMPARE(accessible->role(), QAccessible::ListItem);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Balanced"));
    QVERIFY(accessible->state().selected);
    QCOMPARE(row->height(), 44);
    QCOMPARE(stage.texts(), QStringList{QStringLiteral("Balanced")});
}

void TestUiSheets::chipStates()
{
    Stage stage("Chip { objectName: 'it'; text: 'Cmd+N' }");
    QQuickItem *chip = stage.item(QStringLiteral("it"));
    const auto border = [&] {
        return chip->property("border")
            .value<QObject *>()
            ->property("color")
            .value<QColor>()
            .name();
    };
    QCOMPARE(chip->height(), 24);
    QCOMPARE(border(), QStringLiteral("#747a8c"));
    chip->setProperty("recording", true);
    QCOMPARE(border(), QStringLiteral("#7db2ff"));
    chip->setProperty("recording", false);
    chip->setProperty("conflict", true);
    QCOMPARE(border(), QStringLiteral("#e6a660"));
}

QUELLORA_TEST(QGuiApplication, TestUiSheets)
#include "test_ui_sheets.moc"
