#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: traits, order, exclusion from captures, compositing.
class PanelWindowContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void traitsMayBeAppliedAgain();
    void showingTakesNothing();
    void showingAgainTakesNothing();
    void staysAboveAClickedWindow();
    void staysAboveALaterWindow();
    void traitsSurviveHiding();
    void traitsSurviveANewNativeWindow();
    void clicksTakeNoKeyboard();
    void hiddenItIsGone();
    void exclusionIsHonest();
    void exclusionChangesNothingElse();
    void tellsWhenCompositingChanges();
};

} // namespace quellora
