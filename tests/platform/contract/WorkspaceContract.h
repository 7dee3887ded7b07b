#pragma once

#include "platform/contract/ContractSuite.h"

#include <optional>

namespace quellora {

class WorkspaceContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private:
    std::optional<OpenResult> resultOf(const QFuture<OpenResult> &opening);
    bool isOpened(const QFuture<OpenResult> &opening);
    std::optional<OpenFailure::Kind> failureOf(const QFuture<OpenResult> &opening);

private Q_SLOTS:
    void handsOverTheVeryAddress_data();
    void handsOverTheVeryAddress();
    void handsOverTheVeryFile();
    void doesNotWaitForTheOtherProgram();
    void tellsOfAFailure_data();
    void tellsOfAFailure();
    void refusesWhatIsNoAddress_data();
    void refusesWhatIsNoAddress();
    void refusesWhatIsNoFile();
};

} // namespace quellora
