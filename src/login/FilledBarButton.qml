import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// A full-width button with a filled background, 40 pixels high, more with larger text.
Basic.AbstractButton {
    id: control

    property color fillColor: Tokens.login.accentFill
    property color hoverFillColor: Tokens.login.accentFillHover
    property color pressedFillColor: Tokens.login.accentFillPressed
    property color textColor: Tokens.login.textOnAccent
    property color borderColor: "transparent"
    property int weight: Font.Medium
    property bool showsGoogleMark: false
    /// Shows a spinner and ignores presses.
    property bool waiting: false

    readonly property real opacityFactor: enabled ? 1 : Tokens.disabledOpacity

    function press() {
        if (control.enabled && !control.waiting)
            control.clicked()
    }

    implicitHeight: 40 + Tokens.growth(20)
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    Component {
        id: mark
        GoogleLogoMark { opacity: control.opacityFactor }
    }
    Component {
        id: spinner
        Spinner {
            size: 16
            theme: Tokens.login
            name: "Waiting for your browser"
        }
    }

    contentItem: Item {
        Row {
            anchors.centerIn: parent
            spacing: 10

            Loader {
                anchors.verticalCenter: parent.verticalCenter
                active: control.showsGoogleMark
                visible: active
                sourceComponent: control.waiting ? spinner : mark
            }
            Label {
                anchors.verticalCenter: parent.verticalCenter
                text: control.text
                type: TypeTokens {
                    scale: Tokens.textScale
                    designSize: 14
                    designLine: 20
                    weight: control.weight
                }
                // Opaque colour blended with the surface instead of a translucent text.
                color: Tokens.blend(Tokens.login.surface, control.textColor,
                                    control.waiting ? 0.75 : control.opacityFactor)
                Accessible.ignored: true
            }
        }
    }

    background: Rectangle {
        radius: 8
        antialiasing: true
        color: Tokens.faded(control.waiting ? control.fillColor
                            : control.down ? control.pressedFillColor
                            : control.hovered ? control.hoverFillColor : control.fillColor,
                            control.opacityFactor)
        border.width: control.borderColor.a > 0 ? 1 : 0
        border.color: Tokens.faded(control.borderColor, control.opacityFactor)

        Behavior on color {
            enabled: !control.down
            ColorAnimation { duration: Tokens.hoverTime }
        }

        FocusRing {
            shown: control.visualFocus
            theme: Tokens.login
            controlRadius: 8
        }
    }

    HoverHandler { cursorShape: control.waiting ? Qt.ArrowCursor : Qt.PointingHandCursor }

    Keys.onReturnPressed: control.press()
    Keys.onEnterPressed: control.press()

    Accessible.role: Accessible.Button
    Accessible.name: control.text
    Accessible.onPressAction: control.press()
}
