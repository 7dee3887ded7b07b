import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// An underlined link that opens a page.
Basic.AbstractButton {
    id: link

    property ThemeTokens theme: Tokens.sheetDark
    /// Read by assistive technology.
    readonly property int role: Accessible.Link

    implicitWidth: words.implicitWidth
    implicitHeight: 28
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
            id: words
            width: parent.width
            height: parent.height
            text: link.text
            type: Tokens.control
            color: link.hovered ? link.theme.text : link.theme.accentText
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        Rectangle {
            y: 21
            width: Math.min(words.implicitWidth, parent.width)
            height: 1
            color: words.color
        }
    }
    HoverHandler { cursorShape: Qt.PointingHandCursor }

    Keys.onReturnPressed: link.clicked()
    Keys.onEnterPressed: link.clicked()

    Accessible.role: role
    Accessible.name: link.text
    Accessible.onPressAction: link.clicked()
}
