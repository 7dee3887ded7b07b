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
    void answersAreHonestAndRepeatable();
    void activateBringsTheWindowToTheFront();
    void activateBringsABuriedWindowBack();
    void accessoryWindowsStillActivate();
    void ordinaryWindowsStillActivate();
    void editKeysReachTheFocusedWindow();
    void editKeysReachThePanel();
    void otherProgramsKeepTheirEditKeys();

private:
    bool activate(ProbeWindow &own);
    QList<Combo> editCombos();
};

} // namespace quellora
