#include "platform/contract/PermissionsContract.h"

#include <utility>

namespace quellora {

void PermissionsContract::queriesHaveNoSideEffects()
{
    const Permissions &role = platform().permissions();
    const auto state = [&role] {
        return std::pair(role.isAccessibilityTrusted(), role.isScreenRecordingGranted());
    };
    auto last = state();
    int changesOfNothing = 0;
    // The desktop's first answer may still be on its way.
    platform().permissions().onChanged([&] {
        if (const auto before = std::exchange(last, state()); before == last)
            ++changesOfNothing;
    });
    for (int i = 0; i < 3; ++i) {
        QVERIFY(state() == last);
        QCoreApplication::processEvents();
    }
    QCOMPARE(changesOfNothing, 0);
    platform().permissions().onChanged({});
    QVERIFY2(!QGuiApplication::focusWindow(), "queries must not open a window");
}

void PermissionsContract::notifiesOfChange()
{
    CONTRACT_REQUIRES(Ability::ChangePermissions);
    Permissions &role = platform().permissions();
    harness().setPermitted(true);
    CONTRACT_TRY_VERIFY(role.isAccessibilityTrusted() && role.isScreenRecordingGranted());
    int replacedCalls = 0;
    role.onChanged([&replacedCalls] { ++replacedCalls; });
    QList<bool> seen;
    role.onChanged(
        [&] { seen << (role.isAccessibilityTrusted() || role.isScreenRecordingGranted()); });
    harness().setPermitted(true);
    harness().setPermitted(false);
    CONTRACT_TRY_VERIFY(!role.isAccessibilityTrusted() && !role.isScreenRecordingGranted());
    CONTRACT_TRY_VERIFY(!seen.isEmpty() && !seen.last());
    const auto calls = seen.size();
    QVERIFY2(calls <= 2, "at most one call per permission");
    harness().setPermitted(false);
    QCoreApplication::processEvents();
    QCOMPARE(seen.size(), calls);
    QVERIFY2(replacedCalls == 0, "a new handler must replace the previous one");
}

} // namespace quellora
