import QtQuick
import Quellora.Ui

/// A sheet over its parent: a scrim and a panel that slides and fades in from the left. Traps Tab.
/// Escape and a press on the scrim emit closeRequested; the owner must set `open` to close it.
FocusScope {
    id: host

    property ThemeTokens theme: Tokens.sheetDark
    property string name
    property bool open: false
    /// Width of the panel; 0 for the full width without a scrim.
    property int panelWidth: 0
    /// Radius of the window's lower corners.
    property real cornerRadius: 0
    default property alias content: panel.data
    /// Animation progress: 0 closed, 1 open.
    property real progress: open ? 1 : 0

    signal closeRequested()

    Behavior on progress {
        NumberAnimation {
            duration: Tokens.sheetTime
            easing.type: Easing.BezierSpline
            easing.bezierCurve: Tokens.standardCurve
        }
    }

    visible: open || progress > 0
    enabled: open
    Keys.onEscapePressed: host.closeRequested()

    FocusTrap { scope: host }
    Item {
        anchors.fill: parent
        clip: host.cornerRadius > 0
        opacity: Tokens.opacityStep(host.progress)
        visible: host.panelWidth > 0

        Rectangle {
            y: -radius
            width: parent.width
            height: parent.height + radius
            radius: host.cornerRadius
            antialiasing: radius > 0
            color: Tokens.sheetDark.scrim
        }
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        onClicked: host.closeRequested()
        onWheel: wheel => wheel.accepted = true
    }
    Item {
        id: panel
        /// Read by the window: a press inside gives it the keyboard focus.
        readonly property bool takesKeyboard: true

        x: Math.round(-Tokens.sheetShift * (1 - host.progress))
        width: host.panelWidth > 0 ? Math.min(host.panelWidth, host.width) : host.width
        height: host.height
        opacity: Tokens.opacityStep(host.progress)
        Accessible.role: Accessible.Pane
        Accessible.name: host.name

        Item {
            anchors.fill: parent
            clip: host.cornerRadius > 0

            Rectangle {
                // Extended so that only the window's rounded corners are visible.
                y: -radius
                width: parent.width + (panel.width < host.width ? radius : 0)
                height: parent.height + radius
                radius: host.cornerRadius
                antialiasing: radius > 0
                color: host.theme.background
            }
        }
        MouseArea { anchors.fill: parent }
    }
}
