#pragma once

#include "platform/contract/ContractSuite.h"

#include <QList>

namespace quellora {

/// KeyMonitor, with the panel as the window that records a combo.
class KeyMonitorContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void interceptsKeysBeforeTextField();
    void interceptsKeysBeforeShortcuts();
    void ignoresKeysOfOtherPrograms();
    void removeRestoresDelivery();
    void handlerCanRemoveMonitor();
    void installReplacesHandler();
    void escapeIsFlagged();
    void modifiersAreReported_data();
    void modifiersAreReported();
    void shiftDoesNotChangeCharacter();
    void unbindableKeysHaveNoCharacter();
    void everyBindableKeyReportsItsCharacter();

private:
    KeyMonitor &monitor() { return platform().keyMonitor(); }
    /// Shows the panel and gives it the keyboard focus.
    bool preparePanel();
    /// Installs a handler that records keys in m_keys, except modifier keys pressed alone.
    void recordKeys();
    QStringList characters() const;

    QList<KeyDown> m_keys;
};

} // namespace quellora
