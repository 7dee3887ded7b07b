#pragma once

#include "platform/Platform.h"

namespace quellora {

/// GlobalHotkeys for systems that deliver no keys of other programs' windows: every registration
/// fails as Unavailable.
class NoGlobalHotkeys : public GlobalHotkeys
{
public:
    void installHandler(std::function<void(Registration)>) override {}
    void removeHandler() override {}
    Result registerHotkey(QKeyCombination) override
    {
        return tl::unexpected(Failure{Failure::Kind::Unavailable, -1});
    }
    void unregisterHotkey(Registration) override {}
};

} // namespace quellora
