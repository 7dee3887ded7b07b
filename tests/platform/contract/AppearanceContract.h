#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// Appearance and StatusArea.
class AppearanceContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void queriesAreStable();
    void notifiesOfDarkModeChange();
    void notifiesOfReducedMotionChange();
    void notifiesOfStatusAreaChange();

private:
    /// Toggles a setting, setting each state twice, and verifies that only the latest handler runs:
    /// once per change, on the main thread.
    void checkChanges(const std::function<void(bool)> &set, const std::function<bool()> &isOn,
                      const std::function<void(std::function<void()>)> &onChanged);
};

} // namespace quellora
