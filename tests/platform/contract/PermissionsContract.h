#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

class PermissionsContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void queriesHaveNoSideEffects();
    void notifiesOfChange();
};

} // namespace quellora
