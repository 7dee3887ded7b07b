import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Panels
import Quellora.Ui

/// A menu row: icon, text and an optional trailing icon.
Basic.AbstractButton {
    id: row

    property string iconName
    property string trailingIcon
    property bool filled: false
    property bool available: true
    property color color: "#e8e8ea"
    /// Accessible role, read by the accessibility interface.
    readonly property int role: Accessible.MenuItem

    /// Emitted on Tab (1) and Backtab (-1) to move within the menu, which keeps the focus.
    signal tabbed(int step)

    visible: available
    implicitHeight: 34 + Tokens.growth(20)
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: Rectangle {
        radius: Tokens.radiusControl
        color: row.filled ? (row.down ? Tokens.frame.accentFillPressed
                                      : row.hovered ? Tokens.frame.accentFillHover
                                                    : Tokens.frame.accentFill)
                          : row.down ? Tokens.frame.pressed
                                     : row.hovered || row.visualFocus ? Tokens.frame.hover
                                                                      : "transparent"

        FocusRing {
            anchors.margins: 0
            shown: row.visualFocus
            controlRadius: Tokens.radiusControl - reach
        }
    }
    contentItem: Item {
        Icon {
            x: 10
            y: (parent.height - height) / 2
            name: row.iconName
            color: label.color
        }
        Label {
            id: label
            x: 36
            width: parent.width - x - (trailing.visible ? 34 : 10)
            height: parent.height
            text: row.text
            type: Tokens.body
            color: row.filled ? "#ffffff" : row.color
            font.weight: row.filled ? Font.Medium : Font.Normal
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        Icon {
            id: trailing
            visible: row.trailingIcon.length > 0
            x: parent.width - 10 - width
            y: (parent.height - height) / 2
            size: 14
            name: row.trailingIcon
            color: "#8b8e99"
        }
    }

    Keys.onTabPressed: row.tabbed(1)
    Keys.onBacktabPressed: row.tabbed(-1)
    Keys.onReturnPressed: row.clicked()
    Keys.onEnterPressed: row.clicked()

    Accessible.role: role
    Accessible.name: row.text
    Accessible.onPressAction: row.clicked()
}
