#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: traits, stacking order, exclusion from captures, compositing.
class PanelWindowContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void traitsCanBeReapplied();
    void showingDoesNotTakeFocus();
    void showingAgainDoesNotTakeFocus();
    void staysAboveClickedWindow();
    void staysAboveNewWindow();
    void traitsSurviveHiding();
    void traitsSurviveNativeWindowRecreation();
    void clickDoesNotTakeFocus();
    void hiddenPanelReceivesNoClicks();
    void exclusionIsAppliedOrUnsupported();
    void exclusionHasNoSideEffects();
    void notifiesOfCompositingChange();
};

} // namespace quellora
