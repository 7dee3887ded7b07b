#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// DeviceInfo, CaptureTool, the application support directory and SystemSymbols.
class SystemFactsContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void osVersionIsOneLine();
    void cpuArchIsKnown();
    void captureToolHasFixedArguments();
    void captureToolExists();
    void screenLayoutHoldsTheFirstScreens();
    void supportDirectoryIsAbsoluteAndNotCreated();
    void unknownSymbolsAreNull();
    void symbolsAreRenderedAtScale();
};

} // namespace quellora
