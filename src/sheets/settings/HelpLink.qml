import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// An underlined link.
Basic.AbstractButton {
    id: link

    property ThemeTokens theme: Tokens.sheetDark
    /// Read by assistive technology.
    readonly property int role: Accessible.Link

    implicitWidth: label.implicitWidth
    implicitHeight: 28 + Tokens.growth(16)
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: Item {
        FocusRing {
            anchors.margins: -2
            shown: link.visualFocus
            theme: link.theme
            radius: Tokens.radiusKbd
        }
    }
    contentItem: Item {
        Label {
            id: label
            width: parent.width
            height: parent.height
            text: link.text
            type: Tokens.control
            color: link.hovered ? link.theme.text : link.theme.accentText
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        Hairline {
            y: Math.round(link.height / 2) + Math.round(label.type.line * 7 / 16)
            width: Math.min(label.implicitWidth, parent.width)
            color: label.color
        }
    }
    HoverHandler { cursorShape: Qt.PointingHandCursor }

    Keys.onReturnPressed: link.clicked()
    Keys.onEnterPressed: link.clicked()

    Accessible.role: role
    Accessible.name: link.text
    Accessible.onPressAction: link.clicked()
}
