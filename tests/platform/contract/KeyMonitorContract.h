#pragma once

#include "platform/contract/ContractSuite.h"

#include <QList>

namespace quellora {

/// KeyMonitor, in the panel, where combos are recorded.
class KeyMonitorContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void takesPressesAheadOfTheField();
    void takesPressesAheadOfShortcuts();
    void leavesOtherProgramsKeysAlone();
    void afterRemovalTheFieldHasThem();
    void handlerMayRemoveIt();
    void installingAgainReplacesTheHandler();
    void escapeIsFlagged();
    void modifiersAreReported_data();
    void modifiersAreReported();
    void shiftDoesNotChangeTheCharacter();
    void keysThatCannotBeBoundHaveNoCharacter();
    void everyKeyOfTheTableHasItsName();

private:
    KeyMonitor &monitor() { return platform().keyMonitor(); }
    /// Shows the panel with the keyboard.
    bool preparePanel();
    /// Collects what the monitor takes; modifier keys by themselves do not count.
    void collect();
    QStringList characters() const;

    QList<KeyDown> m_keys;
};

} // namespace quellora
