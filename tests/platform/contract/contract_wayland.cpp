#include "platform/contract/ContractSuite.h"
#include "platform/contract/OtherProgram.h"
#include "platform/contract/WaylandHarness.h"

#include <QGuiApplication>

/// Runs the contract against the port that a Wayland desktop gets (with_wayland.py).
int main(int argc, char **argv)
{
    using namespace quellora;
    if (argc > 1 && QByteArray(argv[1]) == OtherProgram::argument)
        return OtherProgram::run(argc, argv, {});
    Platform::prepareProcess();
    QGuiApplication application(argc, argv);
    WaylandHarness desktop;
    return ContractSuite::runAll(desktop, QCoreApplication::arguments());
}
