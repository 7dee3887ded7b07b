import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// A clickable row of a list or menu: 34, 36, 40, 44 or 48 px high (set `implicitHeight`), more with larger
/// text.
/// Children are drawn above the row's background.
Basic.AbstractButton {
    id: control

    property ThemeTokens theme: Tokens.sheetDark
    property string name: text
    property string hint
    property bool selected: false
    /// Shows an accent-coloured bar at the left of a selected row.
    property bool showsBar: false
    property real radius: Tokens.radiusControl
    property int role: Accessible.ListItem
    default property alias content: inner.data

    implicitHeight: 36 + Tokens.growth(20)
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    opacity: enabled ? 1 : Tokens.disabledOpacity

    contentItem: Item { id: inner }

    background: Rectangle {
        id: background
        radius: control.radius
        antialiasing: true
        color: control.down ? control.theme.pressed
             : control.selected ? Tokens.faded(control.theme.accent, 0.16)
             : control.hovered ? control.theme.hover : Tokens.faded(control.theme.hover, 0)

        Behavior on color {
            enabled: !control.down
            ColorAnimation { duration: Tokens.hoverTime }
        }

        Rectangle {
            x: 3
            anchors.verticalCenter: parent.verticalCenter
            width: 3
            height: parent.height - 2 * 12
            radius: 1.5
            visible: control.selected && control.showsBar
            color: control.theme.accent
        }
        FocusRing {
            // Inside the row, because rows are adjacent.
            anchors.margins: 0
            shown: control.visualFocus
            theme: control.theme
            radius: control.radius
        }
    }

    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    Accessible.role: control.role
    Accessible.name: control.name
    Accessible.description: control.hint
    Accessible.selectable: true
    Accessible.selected: control.selected
    Accessible.onPressAction: control.clicked()
}
