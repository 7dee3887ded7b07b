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

    void valuesAreAbsentInitially();
    void valuesRoundTrip();
    void valueOfOtherTypeIsAbsent();
    void valueReplacesOtherType();
    void dictionariesPreserveUnicode();
    void changesAreSignalled();
    void unchangedValuesAreNotSignalled();
    void removedValueIsAbsent();
    void secondInstanceReadsFlushedValues();

private:
    UserDefaults &defaults() { return *m_defaults; }
    void clear();

    std::unique_ptr<UserDefaults> m_defaults;
};

} // namespace quellora
