#include "platform/contract/PanelKeyboardContract.h"

namespace quellora {

void PanelKeyboardContract::makeKeyGivesTheKeyboard()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    const Capability result = role().makeKey(panel());
    QVERIFY2(hasHappened(result), qPrintable(result.reason()));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QCOMPARE(panel().keys, QStringList{QStringLiteral("k")});
}

void PanelKeyboardContract::makeKeyAgainChangesNothing()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
}

void PanelKeyboardContract::makeKeyHidesAndRaisesNothing()
{
    QVERIFY(prepareScene());
    // A window of ours that the other program covers must stay beneath it.
    ProbeWindow covered;
    covered.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(hasHappened(platform().shell().activate(covered)));
    QVERIFY(QTest::qWaitForWindowExposed(&covered));
    CONTRACT_TRY_VERIFY(harness().isProgramInFront());
    QVERIFY(openAnother());
    QVERIFY(!harness().isAbove(covered, other()));
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QVERIFY(!harness().isProgramInFront());
    QVERIFY(!harness().isAbove(covered, other()));
    QVERIFY(harness().isAbove(panel(), other()));
    // The other program is still to be seen and clicked.
    QCOMPARE(clickBeside(), Receiver::Other);
}

void PanelKeyboardContract::makeKeyOfAHiddenWindowIsNoSuccess()
{
    QVERIFY(prepareScene());
    const Capability result = role().makeKey(panel());
    QVERIFY(!result.isApplied());
    QVERIFY2(isHonest(result), qPrintable(result.reason()));
    QVERIFY(!panel().isVisible());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyGivesItBack()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    for (int round = 0; round < 2; ++round) {
        QVERIFY(hasHappened(role().makeKey(panel())));
        QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
        role().resignKey(panel());
        QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
        QVERIFY2(panel().isVisible(), "giving the keyboard back hides nothing");
        QVERIFY(harness().isAbove(panel(), other()));
    }
}

void PanelKeyboardContract::resignKeyAfterMakingKeyTwiceGivesItBack()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QVERIFY(hasHappened(role().makeKey(panel())));
    role().resignKey(panel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyGivesItBackToTheLatestWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    role().resignKey(panel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    // From now on another program has it, and gets it back.
    QVERIFY(openAnother());
    QVERIFY(comesToTheFront());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    role().resignKey(panel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelKeyboardContract::resignKeyGivesItBackToOurOwnWindow()
{
    QVERIFY(prepareScene());
    ProbeWindow own;
    own.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(hasHappened(platform().shell().activate(own)));
    QVERIFY(QTest::qWaitForWindowExposed(&own));
    CONTRACT_TRY_VERIFY(harness().isProgramInFront());
    QVERIFY(showPanel());
    // A window manager may still be giving our window the keyboard: ask again then.
    CONTRACT_TRY_VERIFY(hasHappened(role().makeKey(panel())) &&
                        whoHasTheKeyboard() == Receiver::Panel);
    own.keys.clear();
    role().resignKey(panel());
    QVERIFY(harness().press({{QStringLiteral("j"), {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{QStringLiteral("j")});
    QVERIFY(!other().keys().contains(QStringLiteral("j")));
}

void PanelKeyboardContract::resignKeyWithoutItChangesNothing()
{
    QVERIFY(prepareScene());
    role().resignKey(panel());
    QVERIFY(showPanel());
    const int losses = other().keyboardLosses();
    role().resignKey(panel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), losses);
    // Not even when it had it before.
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QVERIFY(openAnother());
    const int laterLosses = other().keyboardLosses();
    role().resignKey(panel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), laterLosses);
}

void PanelKeyboardContract::resignKeyOfAnotherPanelChangesNothing()
{
    QVERIFY(prepareScene());
    ProbeWindow second;
    second.setGeometry(panel().geometry().translated(400, 300));
    QVERIFY(hasHappened(role().applyPanelTraits(second)));
    QVERIFY(hasHappened(role().orderFront(second)));
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    role().resignKey(second);
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
}

void PanelKeyboardContract::clickingElsewhereTakesItBack()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    QCOMPARE(clickBeside(), Receiver::Other);
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelKeyboardContract::hidingGivesItBack()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(hasHappened(role().makeKey(panel())));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Panel);
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    // A key may get lost while a window manager, too, looks for who is next.
    CONTRACT_TRY_COMPARE(whoHasTheKeyboard(), Receiver::Other);
    // Shown again it does not bring the keyboard along.
    QVERIFY(showPanel());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

} // namespace quellora
