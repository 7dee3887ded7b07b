#include "platform/contract/ContractSuite.h"
#include "platform/contract/MacHarness.h"
#include "platform/contract/OtherProgram.h"

#include <QGuiApplication>

/// The contract against the macOS port, on the desktop of the user who runs it.
///
/// This has been compiled and linked, but nobody has run it yet: what it says on its first run may
/// well be about itself.
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
