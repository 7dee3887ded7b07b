#include "platform/contract/AppearanceContract.h"

namespace quellora {

void AppearanceContract::queriesAreStable()
{
    Appearance &role = platform().appearance();
    StatusArea &area = platform().statusArea();
    int changes = 0;
    role.onChanged([&changes] { ++changes; });
    role.onMotionChanged([&changes] { ++changes; });
    area.onChanged([&changes] { ++changes; });
    // Values may change only while events are processed.
    const bool dark = role.isDark();
    const bool lessMotion = role.reducesMotion();
    const bool hasArea = area.isAvailable();
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(role.isDark(), dark);
        QCOMPARE(role.reducesMotion(), lessMotion);
        QCOMPARE(area.isAvailable(), hasArea);
    }
    QCOMPARE(changes, 0);
}

void AppearanceContract::checkChanges(const std::function<void(bool)> &set,
                                      const std::function<bool()> &isOn,
                                      const std::function<void(std::function<void()>)> &onChanged)
{
    set(false);
    CONTRACT_TRY_VERIFY(!isOn());
    set(true);
    CONTRACT_TRY_VERIFY(isOn());
    int replacedCalls = 0;
    onChanged([&replacedCalls] { ++replacedCalls; });
    QList<bool> seen;
    int offMainThread = 0;
    onChanged([&] {
        seen << isOn();
        offMainThread += QThread::currentThread() != thread();
    });
    set(true);
    set(false);
    CONTRACT_TRY_COMPARE(seen, QList<bool>{false});
    set(false);
    set(true);
    CONTRACT_TRY_COMPARE(seen, (QList<bool>{false, true}));
    QCOMPARE(offMainThread, 0);
    QVERIFY2(replacedCalls == 0, "a new handler must replace the previous one");
}

void AppearanceContract::notifiesOfDarkModeChange()
{
    CONTRACT_REQUIRES(Ability::ChangeDarkMode);
    Appearance &role = platform().appearance();
    int motions = 0;
    role.onMotionChanged([&motions] { ++motions; });
    checkChanges([this](bool on) { harness().setDark(on); }, [&role] { return role.isDark(); },
                 [&role](auto handler) { role.onChanged(std::move(handler)); });
    QCOMPARE(motions, 0);
}

void AppearanceContract::notifiesOfReducedMotionChange()
{
    CONTRACT_REQUIRES(Ability::ChangeReducedMotion);
    Appearance &role = platform().appearance();
    checkChanges([this](bool on) { harness().setReducesMotion(on); },
                 [&role] { return role.reducesMotion(); },
                 [&role](auto handler) { role.onMotionChanged(std::move(handler)); });
}

void AppearanceContract::notifiesOfStatusAreaChange()
{
    CONTRACT_REQUIRES(Ability::ChangeStatusArea);
    StatusArea &role = platform().statusArea();
    checkChanges([this](bool on) { harness().setStatusArea(on); },
                 [&role] { return role.isAvailable(); },
                 [&role](auto handler) { role.onChanged(std::move(handler)); });
}

} // namespace quellora
