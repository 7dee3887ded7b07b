#include "platform/contract/PanelKeyboardContract.h"

namespace quellora {

void PanelKeyboardContract::makeKeyFocusesPanel()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    const Capability result = role().makeKey(panel());
    QVERIFY2(succeeded(result), qPrintable(result.reason()));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QCOMPARE(panel().keys, QStringList{QStringLiteral("k")});
}

void PanelKeyboardContract::makeKeyIsIdempotent()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
}

void PanelKeyboardContract::makeKeyKeepsStackingOrder()
{
    QVERIFY(prepareScene());
    // Our window covered by the other program's must stay covered.
    ProbeWindow covered;
    covered.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(succeeded(platform().shell().activate(covered)));
    QVERIFY(QTest::qWaitForWindowExposed(&covered));
    CONTRACT_TRY_VERIFY(harness().isProgramActive());
    QVERIFY(openAnotherWindow());
    QVERIFY(!harness().isAbove(covered, other()));
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    if (!harness().missingAbilities().contains(Ability::StayInactive))
        QVERIFY(!harness().isProgramActive());
    QVERIFY(!harness().isAbove(covered, other()));
    QVERIFY(harness().isAbove(panel(), other()));
    // The other program's window is still visible and receives clicks.
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
}

void PanelKeyboardContract::makeKeyOfHiddenWindowIsNotApplied()
{
    QVERIFY(prepareScene());
    const Capability result = role().makeKey(panel());
    QVERIFY(!result.isApplied());
    QVERIFY2(isConsistent(result), qPrintable(result.reason()));
    QVERIFY(!panel().isVisible());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyReturnsFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    for (int round = 0; round < 2; ++round) {
        QVERIFY(succeeded(role().makeKey(panel())));
        QCOMPARE(keyboardReceiver(), Receiver::Panel);
        role().resignKey(panel());
        QCOMPARE(keyboardReceiver(), Receiver::Other);
        QVERIFY2(panel().isVisible(), "returning the focus must not hide the panel");
        QVERIFY(harness().isAbove(panel(), other()));
    }
}

void PanelKeyboardContract::resignKeyAfterRepeatedMakeKeyReturnsFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QVERIFY(succeeded(role().makeKey(panel())));
    role().resignKey(panel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyReturnsFocusToLatestWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    role().resignKey(panel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    // The focus returns to the window that had it last, not to the first one.
    QVERIFY(openAnotherWindow());
    QVERIFY(waitUntilInFront());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    role().resignKey(panel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyReturnsFocusToOwnWindow()
{
    QVERIFY(prepareScene());
    ProbeWindow ownWindow;
    ownWindow.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(succeeded(platform().shell().activate(ownWindow)));
    QVERIFY(QTest::qWaitForWindowExposed(&ownWindow));
    CONTRACT_TRY_VERIFY(harness().isProgramActive());
    QVERIFY(showPanel());
    // The window manager may still be focusing our window, so retry.
    CONTRACT_TRY_VERIFY(succeeded(role().makeKey(panel())) &&
                        keyboardReceiver() == Receiver::Panel);
    ownWindow.keys.clear();
    role().resignKey(panel());
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{QStringLiteral("j")});
    QVERIFY(!other().keys().contains(QStringLiteral("j")));
}

void PanelKeyboardContract::resignKeyWithoutFocusDoesNothing()
{
    QVERIFY(prepareScene());
    role().resignKey(panel());
    QVERIFY(showPanel());
    const int losses = other().focusLosses();
    role().resignKey(panel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    QCOMPARE(other().focusLosses(), losses);
    // Also if the panel had the focus earlier.
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QVERIFY(openAnotherWindow());
    const int laterLosses = other().focusLosses();
    role().resignKey(panel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    QCOMPARE(other().focusLosses(), laterLosses);
}

void PanelKeyboardContract::resignKeyOfOtherPanelDoesNothing()
{
    QVERIFY(prepareScene());
    ProbeWindow second;
    second.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(succeeded(role().applyPanelTraits(second)));
    QVERIFY(succeeded(role().orderFront(second)));
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    role().resignKey(second);
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
}

void PanelKeyboardContract::clickOutsideReturnsFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelKeyboardContract::hidingReturnsFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().makeKey(panel())));
    QCOMPARE(keyboardReceiver(), Receiver::Panel);
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    // Keys may get lost while the window manager selects the next window.
    CONTRACT_TRY_COMPARE(keyboardReceiver(), Receiver::Other);
    // Showing it again does not take the focus.
    QVERIFY(showPanel());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

} // namespace quellora
