#include "platform/contract/ShellContract.h"

namespace quellora {
namespace {

const QList<QKeySequence::StandardKey> edits{QKeySequence::Undo,  QKeySequence::Redo,
                                             QKeySequence::Cut,   QKeySequence::Copy,
                                             QKeySequence::Paste, QKeySequence::SelectAll};

} // namespace

/// The shortcuts of Undo, Redo, Cut, Copy, Paste and Select All.
QList<Combo> ShellContract::editCombos()
{
    const Qt::KeyboardModifiers modifier = harness().editModifier();
    return {{QStringLiteral("z"), modifier}, {QStringLiteral("z"), modifier | Qt::ShiftModifier},
            {QStringLiteral("x"), modifier}, {QStringLiteral("c"), modifier},
            {QStringLiteral("v"), modifier}, {QStringLiteral("a"), modifier}};
}

bool ShellContract::activate(ProbeWindow &ownWindow)
{
    ownWindow.setGeometry(panel().geometry().translated(400, 300));
    const Capability result = platform().shell().activate(ownWindow);
    if (!succeeded(result))
        qWarning() << result.reason();
    return succeeded(result) && QTest::qWaitForWindowExposed(&ownWindow) &&
           waitFor([this] { return harness().isProgramActive(); }) &&
           waitFor([&] { return harness().isAbove(ownWindow, other()); });
}

void ShellContract::resultsAreRepeatable()
{
    ApplicationShell &shell = platform().shell();
    const Capability accessory = shell.becomeAccessory();
    QVERIFY2(succeeded(accessory), qPrintable(accessory.reason()));
    QCOMPARE(shell.becomeAccessory().state(), accessory.state());
    const Capability menu = shell.installEditMenu();
    QVERIFY2(succeeded(menu), qPrintable(menu.reason()));
    QCOMPARE(shell.installEditMenu().state(), menu.state());
    QVERIFY2(!harness().isProgramActive(), "neither call may activate the program");
}

void ShellContract::activateBringsWindowToFront()
{
    QVERIFY(prepareScene());
    ProbeWindow ownWindow;
    QVERIFY(activate(ownWindow));
    QVERIFY(ownWindow.isVisible());
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{QStringLiteral("j")});
    QCOMPARE(other().keys(), QStringList());
}

void ShellContract::activateRaisesCoveredWindow()
{
    CONTRACT_REQUIRES(Ability::RaiseCovered);
    QVERIFY(prepareScene());
    ProbeWindow ownWindow;
    QVERIFY(activate(ownWindow));
    QVERIFY(openAnotherWindow());
    CONTRACT_TRY_VERIFY(!harness().isProgramActive());
    QVERIFY(!harness().isAbove(ownWindow, other()));
    QVERIFY(activate(ownWindow));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::accessoryWindowCanBeActivated()
{
    QVERIFY(prepareScene());
    platform().shell().becomeAccessory();
    ProbeWindow ownWindow;
    QVERIFY(activate(ownWindow));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::ordinaryWindowCanBeActivated()
{
    QVERIFY(prepareScene());
    ApplicationShell &shell = platform().shell();
    shell.becomeAccessory();
    ProbeWindow ownWindow;
    const Capability ordinary = shell.makeOrdinary(ownWindow);
    QVERIFY2(succeeded(ordinary), qPrintable(ordinary.reason()));
    QVERIFY(!ownWindow.isVisible());
    QVERIFY(activate(ownWindow));
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{QStringLiteral("j")});
}

void ShellContract::editKeysReachFocusedWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(succeeded(platform().shell().installEditMenu()));
    ProbeWindow ownWindow;
    QVERIFY(activate(ownWindow));
    QVERIFY(harness().press(editCombos()));
    CONTRACT_TRY_COMPARE(ownWindow.edits.size(), edits.size());
    QCOMPARE(ownWindow.edits, edits);
    // Once a later plain key has arrived, no edit command can arrive a second time.
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_VERIFY(ownWindow.keys.contains(QStringLiteral("j")));
    QCOMPARE(ownWindow.edits, edits);
}

void ShellContract::editKeysReachPanel()
{
    QVERIFY(prepareScene());
    QVERIFY(succeeded(platform().shell().installEditMenu()));
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QVERIFY(harness().press(editCombos()));
    CONTRACT_TRY_COMPARE(panel().edits.size(), edits.size());
    QCOMPARE(panel().edits, edits);
}

void ShellContract::editKeysOfOtherProgramsAreNotIntercepted()
{
    QVERIFY(prepareScene());
    QVERIFY(succeeded(platform().shell().installEditMenu()));
    QVERIFY(showPanel());
    QVERIFY(harness().press({{QStringLiteral("c"), harness().editModifier()}}));
    CONTRACT_TRY_COMPARE(other().keys(), QStringList{QStringLiteral("c")});
    QVERIFY(panel().edits.isEmpty());
}

} // namespace quellora
