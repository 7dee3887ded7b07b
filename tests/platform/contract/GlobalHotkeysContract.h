#pragma once

#include "platform/contract/ContractSuite.h"

#include <QList>
#include <QMap>

namespace quellora {

class GlobalHotkeysContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void init();
    void cleanup();

    void pressIsDeliveredOnce();
    void pressDoesNotReachFocusedWindow();
    void firesInOwnWindow();
    void modifiersMustMatchExactly();
    void distinguishesModifiers();
    void everyBindableKeyWorks();
    void registrationsAreUnique();
    void unregisterReleasesKey();
    void unregisterIgnoresUnknownRegistration();
    void ownDuplicateIsRefused();
    void canRegisterAgainAfterUnregister();
    void unsupportedKeyIsRefused();
    void otherProgramsHotkeyIsRefused();
    void removedHandlerIsNotCalled();
    void handlerCanUnregisterAndRemoveItself();
    void destructorReleasesKeys();

private:
    GlobalHotkeys &role() { return platform().globalHotkeys(); }
    /// @param id appended to m_fired when the hot key is pressed
    GlobalHotkeys::Result add(const QString &key, Qt::KeyboardModifiers modifiers, int id);
    /// Presses a marker hot key and waits for it. Presses arrive in order, so all earlier ones have
    /// been delivered by then.
    bool pressMarker();
    void recordPresses();

    std::unique_ptr<OtherWindow> m_other;
    QMap<GlobalHotkeys::Registration, int> m_ids;
    QList<int> m_fired;
    /// Number of presses reported on a thread other than the main thread.
    int m_offMainThread = 0;
};

} // namespace quellora
