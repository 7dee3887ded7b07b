import QtQuick
import Quellora.Ui

/// A rotating quarter ring, static with reduced motion. Always combine it with text.
Item {
    id: spinner

    property ThemeTokens theme: Tokens.frame
    property color color: theme.accentText
    property int size: 14
    property bool running: true
    /// Accessible name; empty if adjacent text has the same content.
    property string name

    implicitWidth: size
    implicitHeight: size
    Accessible.role: Accessible.Animation
    Accessible.name: name
    Accessible.ignored: name.length === 0

    Icon {
        id: ring
        anchors.fill: parent
        source: "qrc:/quellora/ui/spinner.svg"
        color: spinner.color

        RotationAnimator on rotation {
            from: 0
            to: 360
            duration: Tokens.spinTime
            loops: Animation.Infinite
            onStopped: ring.rotation = 0
            running: spinner.visible && spinner.running && !Tokens.reducedMotion
        }
    }
}
