#pragma once

#include "hotkeys/HotkeyCombo.h"
#include "platform/Platform.h"

#include <QList>
#include <QMap>

#include <algorithm>
#include <utility>

namespace quellora {

/// GlobalHotkeys with simulated presses and simulated claims by other programs. Registrations are
/// numbered from 1.
class FakeGlobalHotkeys : public GlobalHotkeys
{
public:
    static constexpr Failure taken{Failure::Kind::Taken, -9878};

    void installHandler(std::function<void(Registration)> onPress) override
    {
        ++installs;
        handler = std::move(onPress);
    }
    void removeHandler() override
    {
        ++removals;
        handler = nullptr;
    }
    Result registerHotkey(QKeyCombination combo) override
    {
        attempts << combo;
        if (combo.key() > 0x7F || !HotkeyCombo::bindableKeys.contains(QChar(combo.key()).toLower()))
            return tl::unexpected(Failure{Failure::Kind::UnsupportedKey, -9879});
        if (const auto claim = claims.constFind(combo.toCombined()); claim != claims.constEnd())
            return tl::unexpected(*claim);
        if (isRegistered(combo))
            return tl::unexpected(taken);
        const Registration registration = ++m_last;
        registered.insert(registration, combo);
        return registration;
    }
    void unregisterHotkey(Registration registration) override
    {
        if (registered.remove(registration))
            ++unregistrations;
        else
            ++unknownUnregistrations;
    }

    /// Makes registering this combination fail, as if another program had registered it.
    void claim(QKeyCombination combo, Failure failure = taken)
    {
        claims.insert(combo.toCombined(), failure);
    }
    void release(QKeyCombination combo) { claims.remove(combo.toCombined()); }
    /// Reports a press, even for a registration that does not exist.
    void press(Registration registration)
    {
        // A copy: the handler may remove itself.
        if (const auto onPress = handler)
            onPress(registration);
    }
    bool isRegistered(QKeyCombination combo) const
    {
        return std::find(registered.begin(), registered.end(), combo) != registered.end();
    }
    /// Simulates the user pressing a combination.
    /// @return whether it is registered
    bool pressCombo(QKeyCombination combo)
    {
        if (!isRegistered(combo))
            return false;
        press(registered.key(combo));
        return true;
    }

    QList<QKeyCombination> attempts;
    QMap<Registration, QKeyCombination> registered;
    QMap<int, Failure> claims;
    std::function<void(Registration)> handler;
    int installs = 0;
    int removals = 0;
    int unregistrations = 0;
    /// Attempts to unregister an unknown registration.
    int unknownUnregistrations = 0;

private:
    Registration m_last = 0;
};

} // namespace quellora
