#pragma once

#include "backend/Records.h"
#include "query/CaptureTarget.h"

#include <QString>

#include <optional>

namespace quellora {

/// The application delegate's interface to the overlay. Exists only between sign-in and sign-out.
class OverlayPresenter
{
public:
    virtual ~OverlayPresenter() = default;

    virtual void closeWindow() = 0;
    /// Called before the process ends without running destructors: saves partial answers and
    /// deletes preview files. Does not touch the window.
    virtual void finishAtOnce() = 0;
    /// Shows and raises the window without activating it. Logs "Window shown".
    virtual void show() = 0;

    virtual void triggerCaptureAndSend(CaptureTarget target) = 0;
    virtual void captureNoSend() = 0;
    /// Captures and sends with this prompt instead of the one in the box.
    virtual void captureAndSendPrompt(const QString &prompt) = 0;
    /// Clears the response area; the thread is kept.
    virtual void clearContent() = 0;
    virtual void toggleVisibility() = 0;
    virtual void adjustOpacity(double delta) = 0;
    virtual void startNewThread() = 0;
    /// Lets clicks act on the answer or pass through it. Shows the window if it is hidden.
    virtual void toggleClicks() = 0;
    /// Asks the last question of the thread again.
    virtual void retry() = 0;
    /// Raises the window and shows a temporary notice, e.g. that an action started in the status
    /// menu failed.
    virtual void showNotice(const QString &text) = 0;

    /// Applies the configuration received at sign-in.
    virtual void applyConfigAtStart(const AppConfigResponse &config) = 0;
};

} // namespace quellora
