import QtQuick
import Quellora.Ui

/// Offers to bring back what was removed, at the lower end of a sheet. Takes no focus by itself.
Item {
    id: bar

    property ThemeTokens theme: Tokens.sheetDark
    /// What was removed; the bar is hidden without a text.
    property string text
    /// Radius of the window's lower corners.
    property real cornerRadius: 0
    /// Receives the focus if the bar goes while it has it.
    property Item fallback

    signal undone(bool byKey)

    visible: text.length > 0
    implicitHeight: visible ? 44 + Tokens.growth(20) : 0
    Accessible.role: Accessible.Grouping
    Accessible.name: bar.text

    Item {
        anchors.fill: parent
        clip: true

        Rectangle {
            y: -radius
            width: parent.width
            height: parent.height + radius
            radius: bar.cornerRadius
            color: bar.theme.raised
            antialiasing: radius > 0
        }
        Hairline {
            width: parent.width
            color: bar.theme.line
        }
    }
    Icon {
        x: Tokens.space4
        anchors.verticalCenter: parent.verticalCenter
        size: 14
        name: "trash-2"
        color: bar.theme.dimText
    }
    Label {
        objectName: "undoWords"
        x: Tokens.space4 + 22
        width: undo.x - x - Tokens.space3
        height: parent.height
        text: bar.text
        type: Tokens.body
        theme: bar.theme
        elide: Text.ElideRight
        Accessible.role: Accessible.StaticText
    }
    Button {
        id: undo
        objectName: "undo"
        x: parent.width - width - Tokens.space3
        y: Math.round((parent.height - height) / 2)
        theme: bar.theme
        text: qsTr("Undo")
        onClicked: bar.undone(visualFocus)
        onVisibleChanged: {
            if (visible || !focus)
                return
            focus = false
            if (bar.fallback)
                bar.fallback.forceActiveFocus(Qt.OtherFocusReason)
        }
        Accessible.description: bar.text
    }
}
