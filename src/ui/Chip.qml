import QtQuick
import Quellora.Ui

/// A key combination in a hotkey row, 24 px high, more with larger text. Pulses while recording.
Rectangle {
    id: chip

    property ThemeTokens theme: Tokens.sheetDark
    property alias text: label.text
    property bool recording: false
    property bool conflict: false
    /// Whether the text says that there is no key.
    property bool vacant: false

    implicitWidth: label.implicitWidth + 2 * Tokens.space2
    implicitHeight: 24 + Tokens.growth(16)
    radius: Tokens.radiusControl
    antialiasing: true
    color: recording ? Tokens.faded(theme.accent, 0.16) : theme.input
    border.width: recording || conflict ? 1.5 : 1
    border.color: recording ? theme.accentText : conflict ? theme.warnText : theme.outline

    Rectangle {
        id: halo
        anchors.fill: parent
        anchors.margins: -3
        radius: chip.radius + 3
        visible: chip.recording
        color: "transparent"
        border.width: 3
        border.color: Tokens.faded(chip.theme.accent, 0.22)
        antialiasing: true

        SequentialAnimation on opacity {
            running: halo.visible && !Tokens.reducedMotion
            loops: Animation.Infinite
            onStopped: halo.opacity = 1
            NumberAnimation { to: 0.45; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
            NumberAnimation { to: 1; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
        }
    }
    Label {
        id: label
        anchors.centerIn: parent
        type: Tokens.control
        color: chip.recording ? chip.theme.accentText
             : chip.vacant ? chip.theme.dimText : chip.theme.text
        Accessible.ignored: true
    }
}
