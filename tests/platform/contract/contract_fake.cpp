#include "platform/contract/ContractSuite.h"
#include "platform/contract/FakeHarness.h"

#include <QGuiApplication>

/// Runs the contract against the fakes that other tests use.
int main(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    quellora::FakeHarness fakes;
    return quellora::ContractSuite::runAll(fakes, QCoreApplication::arguments());
}
