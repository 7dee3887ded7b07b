#pragma once

#include "platform/contract/ContractSuite.h"

#include <QList>

namespace quellora {

class GlobalHotkeysContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private Q_SLOTS:
    void init();
    void cleanup();

    void pressDeliversItsIdOnce();
    void pressReachesNobodyElse();
    void firesInOurOwnWindow();
    void modifiersMustMatchExactly();
    void modifiersAreToldApart();
    void everyKeyOfTheTableWorks();
    void registrationsAreDistinct();
    void unregisteredKeyIsSilentAndFree();
    void unregisteringWhatIsNotRegisteredIsNoError();
    void ourOwnDuplicateIsRefused();
    void mayBeRegisteredAgain();
    void anotherProgramsHotkeyIsRefused();
    void removedHandlerHearsNothing();
    void handlerMayUnregisterAndRemoveItself();
    void endReleasesTheKeys();

private:
    GlobalHotkeys &role() { return platform().globalHotkeys(); }
    GlobalHotkeys::Result add(const QString &key, quint32 modifiers, quint32 id);
    /// Presses a last hot key: what was pressed before it has fired by then or never will.
    bool pressMarker();
    void listen();

    std::unique_ptr<OtherWindow> m_other;
    QList<quint32> m_fired;
    /// Presses that did not come on the main thread.
    int m_elsewhere = 0;
};

} // namespace quellora
