import QtQuick
import Quellora.Ui

/// A sheet over its parent: a scrim and a panel that slides in from the left while it fades in. Tab
/// stays inside. Escape and a press on the scrim ask for closing; whoever owns `open` decides.
FocusScope {
    id: host

    property ThemeTokens theme: Tokens.sheetDark
    property string name
    property bool open: false
    /// 0 covers the whole width, without a scrim.
    property int panelWidth: 0
    default property alias content: panel.data
    /// 0 closed, 1 open, in between while it moves.
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
    Rectangle {
        anchors.fill: parent
        opacity: host.progress
        visible: host.panelWidth > 0
        color: Tokens.sheetDark.scrim
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        onClicked: host.closeRequested()
        onWheel: wheel => wheel.accepted = true
    }
    Rectangle {
        id: panel
        x: Math.round(-Tokens.sheetShift * (1 - host.progress))
        width: host.panelWidth > 0 ? Math.min(host.panelWidth, host.width) : host.width
        height: host.height
        opacity: host.progress
        color: host.theme.background
        Accessible.role: Accessible.Pane
        Accessible.name: host.name

        MouseArea { anchors.fill: parent }
    }
}
