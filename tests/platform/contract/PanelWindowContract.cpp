#include "platform/contract/PanelWindowContract.h"

namespace quellora {

void PanelWindowContract::traitsCanBeReapplied()
{
    QVERIFY(prepareScene());
    const Capability first = role().applyPanelTraits(panel());
    const Capability second = role().applyPanelTraits(panel());
    QCOMPARE(second.state(), first.state());
    QCOMPARE(second.reason(), first.reason());
    QVERIFY2(!panel().isVisible(), "applying traits must not show the window");
    QVERIFY(showPanel());
    // As after the native window was recreated.
    QVERIFY(succeeded(role().applyPanelTraits(panel())));
    QVERIFY(panel().isVisible());
    QVERIFY(waitUntilInFront());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelWindowContract::showingDoesNotTakeFocus()
{
    QVERIFY(prepareScene());
    const int losses = other().focusLosses();
    QVERIFY(showPanel());
    QVERIFY(panel().isVisible());
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    QCOMPARE(other().focusLosses(), losses);
    QVERIFY(!harness().isProgramActive());
    QCOMPARE(panel().keys, QStringList());
}

void PanelWindowContract::showingAgainDoesNotTakeFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().focusLosses();
    for (int i = 0; i < 3; ++i) {
        panel().hide();
        CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
        QVERIFY(showPanel());
    }
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    QCOMPARE(other().focusLosses(), losses);
    QVERIFY(!harness().isProgramActive());
}

void PanelWindowContract::staysAboveClickedWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
}

void PanelWindowContract::staysAboveNewWindow()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(openAnotherWindow());
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
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelWindowContract::traitsSurviveNativeWindowRecreation()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().focusLosses();
    panel().destroy();
    QVERIFY(showPanel());
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
    QVERIFY(harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    if (!harness().missingAbilities().contains(Ability::StayInactive))
        QCOMPARE(other().focusLosses(), losses);
}

void PanelWindowContract::clickDoesNotTakeFocus()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const int losses = other().focusLosses();
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(panel().clicks, (QList<QPoint>{{50, 60}}));
    QCOMPARE(keyboardReceiver(), Receiver::Other);
    if (!harness().missingAbilities().contains(Ability::StayInactive))
        QCOMPARE(other().focusLosses(), losses);
    QVERIFY(!harness().isProgramActive());
}

void PanelWindowContract::hiddenPanelReceivesNoClicks()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    QCOMPARE(clickAt({50, 60}), Receiver::Other);
    QCOMPARE(panel().clicks.size(), 0);
}

void PanelWindowContract::exclusionIsAppliedOrUnsupported()
{
    QVERIFY(prepareScene());
    const Capability first = role().excludeFromCapture(panel());
    QVERIFY2(isConsistent(first), qPrintable(first.reason()));
    QVERIFY2(first.state() != Capability::State::BestEffort,
             "exclusion from some captures only does not count as exclusion");
    const Capability second = role().excludeFromCapture(panel());
    QCOMPARE(second.state(), first.state());
    QCOMPARE(second.reason(), first.reason());
}

void PanelWindowContract::exclusionHasNoSideEffects()
{
    QVERIFY(prepareScene());
    role().excludeFromCapture(panel());
    QVERIFY2(!panel().isVisible(), "excluding must not show the window");
    QVERIFY(showPanel());
    QCOMPARE(clickAt({50, 60}), Receiver::Panel);
    QCOMPARE(keyboardReceiver(), Receiver::Other);
}

void PanelWindowContract::notifiesOfCompositingChange()
{
    const bool before = role().isCompositing();
    QCOMPARE(role().isCompositing(), before);
    CONTRACT_REQUIRES(Ability::ChangeCompositing);
    harness().setCompositing(true);
    CONTRACT_TRY_VERIFY(role().isCompositing());
    QList<bool> seen;
    int offMainThread = 0;
    role().onCompositingChanged([&] {
        seen << role().isCompositing();
        offMainThread += QThread::currentThread() != thread();
    });
    harness().setCompositing(true);
    harness().setCompositing(false);
    CONTRACT_TRY_COMPARE(seen, QList<bool>{false});
    harness().setCompositing(false);
    harness().setCompositing(true);
    CONTRACT_TRY_COMPARE(seen, (QList<bool>{false, true}));
    QCOMPARE(offMainThread, 0);
}

} // namespace quellora
