#pragma once

#include <functional>

namespace quellora {

/// The sign-in window's interface to the application delegate.
class LoginPresenter
{
public:
    virtual ~LoginPresenter() = default;
    virtual void showWindow() = 0;
    /// Restores, raises and focuses the window without moving it.
    virtual void bringToFront() = 0;

    /// Called once after a successful sign-in, after the window has closed.
    std::function<void()> onLoginSuccess;
};

} // namespace quellora
