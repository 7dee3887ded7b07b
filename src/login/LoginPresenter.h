#pragma once

#include <functional>

namespace quellora {

/// The sign-in window as the application delegate sees it.
class LoginPresenter
{
public:
    virtual ~LoginPresenter() = default;
    virtual void showWindow() = 0;
    /// Raises the window and gives it the focus, where it is.
    virtual void bringToFront() = 0;

    /// Called once after a successful sign-in, when the window has closed.
    std::function<void()> onLoginSuccess;
};

} // namespace quellora
