#pragma once

#include <QString>

namespace quellora {

/// What a system calls its keys, its settings and itself, in texts for the user. Every port has its
/// own; nothing else decides by system which words stand on the screen.
struct Vocabulary
{
    // The modifier keys as they are written on the keyboard.
    QString control;
    QString option;
    QString command;
    QString shift;
    /// The machine, in the middle of a sentence.
    QString computer;
    /// Where light and dark are chosen for all programs, in the middle of a sentence.
    QString appearanceSetting;
    /// What to do where watching keys is not permitted, in whole sentences.
    QString accessibilityAdvice;
    /// What to do where reading the screen is not permitted, in whole sentences.
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
        // No desktop has a switch for either: it is the kind of session that keeps programs apart.
        const QString otherSession = QStringLiteral(
            " Log out, choose a session with X11 (also called Xorg) at the login screen, then log "
            "in again.");
        return {
            QStringLiteral("Ctrl"),
            QStringLiteral("Alt"),
            QStringLiteral("Super"),
            QStringLiteral("Shift"),
            QStringLiteral("this computer"),
            QStringLiteral("your desktop's setting"),
            QStringLiteral("A Wayland session keeps the keys of other programs to itself.") +
                otherSession,
            QStringLiteral("A Wayland session keeps the windows of other programs to itself.") +
                otherSession,
        };
    }
};

} // namespace quellora
