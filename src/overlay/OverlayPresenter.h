#pragma once

#include "backend/Records.h"

#include <QString>

#include <optional>

namespace quellora {

/// The overlay as the application delegate sees it. Exists between sign-in and sign-out only.
class OverlayPresenter
{
public:
    virtual ~OverlayPresenter() = default;

    virtual void closeWindow() = 0;
    /// The process is about to end past the window's own end: keeps what has arrived of answers and
    /// leaves no picture behind. Nothing is shown any more.
    virtual void finishAtOnce() = 0;
    /// Orders the window to the front without activating it, logged as "Window shown".
    virtual void show() = 0;

    virtual void triggerCaptureAndSend() = 0;
    virtual void captureNoSend() = 0;
    /// Empties the response area; the thread is kept.
    virtual void clearContent() = 0;
    virtual void toggleVisibility() = 0;
    virtual void adjustOpacity(double delta) = 0;
    virtual void startNewThread() = 0;
    /// Brings the window to the front and says in it, for a while, that something the user asked
    /// for elsewhere did not happen.
    virtual void showNotice(const QString &text) = 0;

    /// Applies the configuration that sign-in brought.
    virtual void applyConfigAtStart(const AppConfigResponse &config) = 0;
};

} // namespace quellora
