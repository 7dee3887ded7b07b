#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

class WorkspaceContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void handsOverTheVeryAddress_data();
    void handsOverTheVeryAddress();
    void handsOverTheVeryFile();
    void doesNotWaitForTheOtherProgram();
    void refusesWhatIsNoAddress_data();
    void refusesWhatIsNoAddress();
    void refusesWhatIsNoFile();
};

} // namespace quellora
