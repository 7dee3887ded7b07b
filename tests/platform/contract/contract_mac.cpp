#include "platform/contract/ContractSuite.h"
#include "platform/contract/MacHarness.h"
#include "platform/contract/OtherProgram.h"

#include <QGuiApplication>

/// Runs the contract against the macOS port, on the desktop of the user who starts it.
///
/// Compiled and linked, but not run so far: the first failures may be errors of the test itself.
int main(int argc, char **argv)
{
    using namespace quellora;
    if (argc > 1 && QByteArray(argv[1]) == OtherProgram::argument)
        return MacHarness::runOtherProgram(argc, argv);
    Platform::prepareProcess();
    QGuiApplication application(argc, argv);
    MacHarness desktop;
    return ContractSuite::runAll(desktop, application.arguments());
}
