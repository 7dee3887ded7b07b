#include "platform/contract/ContractSuite.h"
#include "platform/contract/OtherProgram.h"
#include "platform/contract/X11Harness.h"

#include <QGuiApplication>

/// Runs the contract against the X11 port, on a private desktop (with_desktop.py).
int main(int argc, char **argv)
{
    using namespace quellora;
    if (argc > 1 && QByteArray(argv[1]) == OtherProgram::argument)
        return OtherProgram::run(argc, argv, {});
    Platform::prepareProcess();
    QGuiApplication application(argc, argv);
    X11Harness desktop;
    return ContractSuite::runAll(desktop, QCoreApplication::arguments());
}
