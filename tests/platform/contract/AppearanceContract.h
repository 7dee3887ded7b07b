#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// Appearance and StatusArea: what the desktop looks like and has.
class AppearanceContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void answersAreStable();
    void tellsWhenDarknessChanges();
    void tellsWhenMotionChanges();
    void tellsWhenTheStatusAreaChanges();

private:
    /// Sets something on, off and on again, each once more than needed, and checks what is told.
    void checkChanges(const std::function<void(bool)> &set, const std::function<bool()> &isOn,
                      const std::function<void(std::function<void()>)> &onChanged);
};

} // namespace quellora
