#include "platform/contract/ShellContract.h"

namespace quellora {
namespace {

const QList<QKeySequence::StandardKey> edits{QKeySequence::Undo,  QKeySequence::Redo,
                                             QKeySequence::Cut,   QKeySequence::Copy,
                                             QKeySequence::Paste, QKeySequence::SelectAll};

} // namespace

/// The keys of Undo, Redo, Cut, Copy, Paste and Select All.
QList<Combo> ShellContract::editCombos()
{
    const Qt::KeyboardModifiers modifier = harness().editModifier();
    return {{QStringLiteral("z"), modifier}, {QStringLiteral("z"), modifier | Qt::ShiftModifier},
            {QStringLiteral("x"), modifier}, {QStringLiteral("c"), modifier},
            {QStringLiteral("v"), modifier}, {QStringLiteral("a"), modifier}};
}

bool ShellContract::activate(ProbeWindow &own)
{
    own.setGeometry(panel().geometry().translated(400, 300));
    const Capability result = platform().shell().activate(own);
    if (!hasHappened(result))
        qWarning() << result.reason();
    return hasHappened(result) && QTest::qWaitForWindowExposed(&own) &&
           awaits([this] { return harness().isProgramInFront(); }) &&
           awaits([&] { return harness().isAbove(own, other()); });
}

void ShellContract::answersAreHonestAndRepeatable()
{
    ApplicationShell &shell = platform().shell();
    const Capability accessory = shell.becomeAccessory();
    QVERIFY2(hasHappened(accessory), qPrintable(accessory.reason()));
    QCOMPARE(shell.becomeAccessory().state(), accessory.state());
    const Capability menu = shell.installEditMenu();
    QVERIFY2(hasHappened(menu), qPrintable(menu.reason()));
    QCOMPARE(shell.installEditMenu().state(), menu.state());
    QVERIFY2(!harness().isProgramInFront(), "neither brings the program to the front");
}

void ShellContract::activateBringsTheWindowToTheFront()
{
    QVERIFY(prepareScene());
    ProbeWindow own;
    QVERIFY(activate(own));
    QVERIFY(own.isVisible());
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{QStringLiteral("j")});
    QCOMPARE(other().keys(), QStringList());
}

void ShellContract::activateBringsABuriedWindowBack()
{
    QVERIFY(prepareScene());
    ProbeWindow own;
    QVERIFY(activate(own));
    QVERIFY(openAnother());
    CONTRACT_TRY_VERIFY(!harness().isProgramInFront());
    QVERIFY(!harness().isAbove(own, other()));
    QVERIFY(activate(own));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::accessoryWindowsStillActivate()
{
    QVERIFY(prepareScene());
    platform().shell().becomeAccessory();
    ProbeWindow own;
    QVERIFY(activate(own));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::ordinaryWindowsStillActivate()
{
    QVERIFY(prepareScene());
    ApplicationShell &shell = platform().shell();
    shell.becomeAccessory();
    ProbeWindow own;
    const Capability ordinary = shell.makeOrdinary(own);
    QVERIFY2(hasHappened(ordinary), qPrintable(ordinary.reason()));
    QVERIFY(!own.isVisible());
    QVERIFY(activate(own));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::editKeysReachTheFocusedWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(hasHappened(platform().shell().installEditMenu()));
    ProbeWindow own;
    QVERIFY(activate(own));
    QVERIFY(harness().press(editCombos()));
    CONTRACT_TRY_COMPARE(own.edits.size(), edits.size());
    QCOMPARE(own.edits, edits);
    // Plain keys come after them, so that none of them comes twice.
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_VERIFY(own.keys.contains(QStringLiteral("j")));
    QCOMPARE(own.edits, edits);
}

void ShellContract::editKeysReachThePanel()
{
    QVERIFY(prepareScene());
    QVERIFY(hasHappened(platform().shell().installEditMenu()));
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QVERIFY(harness().press(editCombos()));
    CONTRACT_TRY_COMPARE(panel().edits.size(), edits.size());
    QCOMPARE(panel().edits, edits);
}

void ShellContract::otherProgramsKeepTheirEditKeys()
{
    QVERIFY(prepareScene());
    QVERIFY(hasHappened(platform().shell().installEditMenu()));
    QVERIFY(showPanel());
    QVERIFY(harness().press({{QStringLiteral("c"), harness().editModifier()}}));
    CONTRACT_TRY_COMPARE(other().keys(), QStringList{QStringLiteral("c")});
    QVERIFY(panel().edits.isEmpty());
}

} // namespace quellora
