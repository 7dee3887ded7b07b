#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace quellora {

/// Waits for the callback request that the browser sends after a sign-in.
class BrowserSignIn
{
public:
    virtual ~BrowserSignIn() = default;

    /// Starts waiting. @p onReady is called once requests can be accepted; @p onToken exactly once
    /// per start with the token, or with nothing on any failure. Both may be called on any thread.
    virtual void start(std::function<void()> onReady,
                       std::function<void(std::optional<QString> token)> onToken) = 0;
    /// Stops waiting, if active. No callback follows.
    virtual void cancel() = 0;
};

} // namespace quellora
