#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// ApplicationShell.
class ShellContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void resultsAreRepeatable();
    void activateBringsWindowToFront();
    void activateRaisesCoveredWindow();
    void accessoryWindowCanBeActivated();
    void ordinaryWindowCanBeActivated();
    void editKeysReachFocusedWindow();
    void editKeysReachPanel();
    void editKeysOfOtherProgramsAreNotIntercepted();

private:
    bool activate(ProbeWindow &ownWindow);
    QList<Combo> editCombos();
};

} // namespace quellora
