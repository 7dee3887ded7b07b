#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: who has the keyboard.
class PanelKeyboardContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void makeKeyGivesTheKeyboard();
    void makeKeyAgainChangesNothing();
    void makeKeyHidesAndRaisesNothing();
    void makeKeyOfAHiddenWindowIsNoSuccess();
    void resignKeyGivesItBack();
    void resignKeyAfterMakingKeyTwiceGivesItBack();
    void resignKeyGivesItBackToTheLatestWindow();
    void resignKeyGivesItBackToOurOwnWindow();
    void resignKeyWithoutItChangesNothing();
    void resignKeyOfAnotherPanelChangesNothing();
    void clickingElsewhereTakesItBack();
    void hidingGivesItBack();
};

} // namespace quellora
