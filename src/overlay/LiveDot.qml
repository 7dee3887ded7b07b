import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// A pulsing dot with a halo, shown while an answer is streaming.
Item {
    id: dot

    implicitWidth: 16
    implicitHeight: 16
    Accessible.ignored: true

    Rectangle {
        anchors.fill: parent
        radius: 8
        antialiasing: true
        color: Qt.rgba(0x7d / 255, 0xb2 / 255, 0xff / 255, 0.25)
    }
    Rectangle {
        id: core
        anchors.centerIn: parent
        width: 8
        height: 8
        radius: 4
        antialiasing: true
        color: Tokens.frame.accentText

        SequentialAnimation on opacity {
            running: dot.visible && !Tokens.reducedMotion
            loops: Animation.Infinite
            onStopped: core.opacity = 1
            NumberAnimation { to: 0.45; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
            NumberAnimation { to: 1; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
        }
    }
}
