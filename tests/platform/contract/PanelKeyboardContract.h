#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: keyboard focus.
class PanelKeyboardContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void makeKeyFocusesPanel();
    void makeKeyIsIdempotent();
    void makeKeyKeepsStackingOrder();
    void makeKeyOfHiddenWindowIsNotApplied();
    void resignKeyReturnsFocus();
    void resignKeyAfterRepeatedMakeKeyReturnsFocus();
    void resignKeyReturnsFocusToLatestWindow();
    void resignKeyReturnsFocusToOwnWindow();
    void resignKeyWithoutFocusDoesNothing();
    void resignKeyOfOtherPanelDoesNothing();
    void clickOutsideReturnsFocus();
    void hidingReturnsFocus();
};

} // namespace quellora
