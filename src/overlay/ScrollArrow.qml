import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Overlay
import Quellora.Ui

/// An arrow button of the response scrollbar: one step per press, with auto-repeat.
Basic.AbstractButton {
    id: arrow

    required property ResponseScrollbarModel scrollbar
    property string name
    property string iconName
    /// Rectangle of the drawn arrow; the clickable area is larger.
    property rect frame

    y: frame.y - 2
    width: 28
    height: 26
    enabled: scrollbar.isEnabled
    autoRepeat: true
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: Rectangle {
        x: arrow.frame.x
        y: 2
        width: arrow.frame.width
        height: arrow.frame.height
        radius: Tokens.radiusControl
        color: arrow.down ? Tokens.frame.pressed
                          : arrow.hovered ? Tokens.frame.hover : "transparent"

        FocusRing {
            anchors.margins: -1
            shown: arrow.visualFocus
        }
    }
    contentItem: Item {
        Icon {
            anchors.centerIn: parent
            size: 14
            name: arrow.iconName
            color: arrow.scrollbar.arrowColor
        }
    }
    ToolTip {
        target: arrow
        text: arrow.name
    }
    HoverHandler { cursorShape: Qt.ArrowCursor }

    Keys.onReturnPressed: arrow.clicked()
    Keys.onEnterPressed: arrow.clicked()
    Keys.onPressed: event => event.accepted = arrow.scrollbar.handleKey(event.key)

    Accessible.role: Accessible.Button
    Accessible.name: arrow.name
    Accessible.onPressAction: if (arrow.enabled) arrow.clicked()
}
