#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// DeviceInfo, the capture tool, the place of stored data, and SystemSymbols.
class SystemFactsContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void osVersionIsOneLine();
    void cpuArchIsOneOfTwo();
    void captureToolHasItsArguments();
    void captureToolIsThere();
    void supportDirectoryIsAbsoluteAndNotCreated();
    void unknownSymbolsAreNull();
    void symbolsAreDrawnAtTheirScale();
};

} // namespace quellora
