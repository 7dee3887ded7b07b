#include "platform/contract/PanelWindowContract.h"

namespace quellora {

void PanelWindowContract::traitsMayBeAppliedAgain()
{
    QVERIFY(prepareScene());
    const Capability first = role().applyPanelTraits(panel());
    const Capability second = role().applyPanelTraits(panel());
    QCOMPARE(second.state(), first.state());
    QCOMPARE(second.reason(), first.reason());
    QVERIFY2(!panel().isVisible(), "traits alone show nothing");
    QVERIFY(showPanel());
    // As when the native window was made anew.
    QVERIFY(hasHappened(role().applyPanelTraits(panel())));
    QVERIFY(panel().isVisible());
    QVERIFY(comesToTheFront());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelWindowContract::showingTakesNothing()
{
    QVERIFY(prepareScene());
    const int losses = other().keyboardLosses();
    QVERIFY(showPanel());
    QVERIFY(panel().isVisible());
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), losses);
    QVERIFY(!harness().isProgramInFront());
    QCOMPARE(panel().keys, QStringList());
}

void PanelWindowContract::showingAgainTakesNothing()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().keyboardLosses();
    for (int i = 0; i < 3; ++i) {
        panel().hide();
        CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
        QVERIFY(showPanel());
    }
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), losses);
    QVERIFY(!harness().isProgramInFront());
}

void PanelWindowContract::staysAboveAClickedWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QCOMPARE(clickBeside(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
}

void PanelWindowContract::staysAboveALaterWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(openAnother());
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
}

void PanelWindowContract::traitsSurviveHiding()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    QVERIFY(showPanel());
    QCOMPARE(clickBeside(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelWindowContract::traitsSurviveANewNativeWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().keyboardLosses();
    panel().destroy();
    QVERIFY(showPanel());
    QCOMPARE(clickBeside(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), losses);
}

void PanelWindowContract::clicksTakeNoKeyboard()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().keyboardLosses();
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(panel().clicks, (QList<QPoint>{{50, 60}}));
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
    QCOMPARE(other().keyboardLosses(), losses);
    QVERIFY(!harness().isProgramInFront());
}

void PanelWindowContract::hiddenItIsGone()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Other);
    QCOMPARE(panel().clicks.size(), 0);
}

void PanelWindowContract::exclusionIsHonest()
{
    QVERIFY(prepareScene());
    const Capability first = role().excludeFromCapture(panel());
    QVERIFY2(isHonest(first), qPrintable(first.reason()));
    QVERIFY2(first.state() != Capability::State::BestEffort,
             "a window that some captures show is not kept out of them");
    const Capability second = role().excludeFromCapture(panel());
    QCOMPARE(second.state(), first.state());
    QCOMPARE(second.reason(), first.reason());
}

void PanelWindowContract::exclusionChangesNothingElse()
{
    QVERIFY(prepareScene());
    role().excludeFromCapture(panel());
    QVERIFY2(!panel().isVisible(), "the exclusion alone shows nothing");
    QVERIFY(showPanel());
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(whoHasTheKeyboard(), Receiver::Other);
}

void PanelWindowContract::tellsWhenCompositingChanges()
{
    const bool before = role().isCompositing();
    QCOMPARE(role().isCompositing(), before);
    CONTRACT_NEEDS(Ability::ChangeCompositing);
    harness().setCompositing(true);
    CONTRACT_TRY_VERIFY(role().isCompositing());
    QList<bool> seen;
    int elsewhere = 0;
    role().onCompositingChanged([&] {
        seen << role().isCompositing();
        elsewhere += QThread::currentThread() != thread();
    });
    harness().setCompositing(true);
    harness().setCompositing(false);
    CONTRACT_TRY_COMPARE(seen, QList<bool>{false});
    harness().setCompositing(false);
    harness().setCompositing(true);
    CONTRACT_TRY_COMPARE(seen, (QList<bool>{false, true}));
    QCOMPARE(elsewhere, 0);
}

} // namespace quellora
