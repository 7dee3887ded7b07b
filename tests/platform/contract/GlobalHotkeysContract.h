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

    void aPressIsDeliveredOnce();
    void pressReachesNobodyElse();
    void firesInOurOwnWindow();
    void modifiersMustMatchExactly();
    void modifiersAreToldApart();
    void everyBindableKeyWorks();
    void registrationsAreDistinct();
    void unregisteredKeyIsSilentAndFree();
    void unregisteringWhatIsNotRegisteredIsNoError();
    void ourOwnDuplicateIsRefused();
    void mayBeRegisteredAgain();
    void unsupportedKeyIsRefused();
    void anotherProgramsHotkeyIsRefused();
    void removedHandlerHearsNothing();
    void handlerMayUnregisterAndRemoveItself();
    void endReleasesTheKeys();

private:
    GlobalHotkeys &role() { return platform().globalHotkeys(); }
    /// @param id stands for the hot key in m_fired
    GlobalHotkeys::Result add(const QString &key, Qt::KeyboardModifiers modifiers, int id);
    /// Presses a last hot key: what was pressed before it has fired by then or never will.
    bool pressMarker();
    void listen();

    std::unique_ptr<OtherWindow> m_other;
    QMap<GlobalHotkeys::Registration, int> m_ids;
    QList<int> m_fired;
    /// Presses that did not come on the main thread.
    int m_elsewhere = 0;
};

} // namespace quellora
