#pragma once

#include <QString>

namespace quellora {

/// The system-dependent terms in user-visible text: names of keys, settings and the machine. Each
/// port provides its own; no other code chooses wording by system.
struct Vocabulary
{
    // The modifier keys as labelled on the keyboard.
    QString control;
    QString option;
    QString command;
    QString shift;
    /// The machine, for use within a sentence.
    QString computer;
    /// The system-wide setting for the light or dark theme, for use within a sentence.
    QString appearanceSetting;
    /// What to do if the permission for global hot keys is missing, in whole sentences; empty where
    /// the system has no such permission to grant.
    QString accessibilityAdvice;
    /// What to do if the permission for screen capture is missing, in whole sentences.
    QString screenRecordingAdvice;

    static Vocabulary macOS()
    {
        return {
            QStringLiteral("Ctrl"),
            QStringLiteral("Option"),
            QStringLiteral("Cmd"),
            QStringLiteral("Shift"),
            QStringLiteral("your Mac"),
            QStringLiteral("your macOS setting"),
            QStringLiteral("Grant it in System Settings → Privacy & Security → Accessibility → "
                           "enable Quellora, then relaunch the app."),
            QStringLiteral("Grant it in System Settings → Privacy & Security → Screen Recording → "
                           "enable Quellora, then relaunch the app."),
        };
    }

    static Vocabulary linuxDesktop()
    {
        return {
            QStringLiteral("Ctrl"),
            QStringLiteral("Alt"),
            QStringLiteral("Super"),
            QStringLiteral("Shift"),
            QStringLiteral("this computer"),
            QStringLiteral("your desktop's setting"),
            // Whether keys work is told by those who register them.
            QString(),
            // Only without a display that takes the panel; the ports advise for themselves.
            QStringLiteral("Start Quellora in an X11 or Wayland session. Where a Wayland desktop "
                           "takes no panels from programs, as GNOME's, XWayland must be "
                           "installed."),
        };
    }
};

} // namespace quellora
