#pragma once

#include "platform/Platform.h"
#include "platform/macos/LastAnswer.h"
#include "platform/macos/Subscription.h"

namespace quellora {

/// The system's privacy permissions. It announces no change: they are asked again whenever the
/// program comes to the front or the user goes to another one, as out of the settings. Main thread
/// only.
class PermissionsMac : public Permissions
{
public:
    PermissionsMac();

    bool isAccessibilityTrusted() const override;
    bool isScreenRecordingGranted() const override;
    void requestScreenRecording() override;
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private:
    struct Answers
    {
        bool accessibility = false;
        bool screenRecording = false;
        bool operator==(const Answers &) const = default;
    };
    Answers ask() const;
    void askAgain();

    LastAnswer<Answers> m_answers;
    std::function<void()> m_handler;
    Subscription m_activated;
    Subscription m_otherActivated;
};

} // namespace quellora
