#pragma once

#include "base/UserDefaults.h"
#include "platform/contract/ContractSuite.h"

namespace quellora {

class UserDefaultsContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void init();
    void cleanup();

    void nothingIsThereAtFirst();
    void valuesComeBackAsTheyWere();
    void anotherTypeCountsAsAbsent();
    void aLaterValueReplacesOneOfAnotherType();
    void dictionariesKeepEveryLetter();
    void changesAreTold();
    void whatDoesNotChangeIsNotTold();
    void removedIsAbsent();
    void aSecondInstanceSeesWhatWasFlushed();

private:
    UserDefaults &defaults() { return *m_defaults; }
    void clear();

    std::unique_ptr<UserDefaults> m_defaults;
};

} // namespace quellora
