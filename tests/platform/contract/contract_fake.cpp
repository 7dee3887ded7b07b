#include "platform/contract/ContractSuite.h"
#include "platform/contract/FakeHarness.h"

#include <QGuiApplication>

/// The contract against the fakes that the other tests build upon.
int main(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    quellora::FakeHarness fakes;
    return quellora::ContractSuite::runAll(fakes, application.arguments());
}
