import QtQuick
import Quellora.Panels
import Quellora.Ui

/// One-line placeholder for a pasted text that is too long for the prompt field.
Item {
    id: row

    required property BottomPanelsModel panels
    readonly property ThemeTokens theme: Tokens.frame

    height: Math.max(20, Tokens.body.line)

    Rectangle {
        y: 1
        width: remove.x + remove.width
        height: row.height - 2
        radius: Tokens.radiusKbd
        color: row.theme.hover
        antialiasing: true
    }
    Icon {
        x: 4
        y: Math.round((row.height - height) / 2)
        name: "file-text"
        size: 12
        color: row.theme.dimText
    }
    Label {
        id: caption
        objectName: "pastedText"
        x: 20
        width: Math.min(implicitWidth, row.width - x - 4 - remove.width)
        height: row.height
        text: row.panels.pastedCaption
        type: Tokens.label
        color: row.theme.text
        elide: Text.ElideRight
    }
    IconButton {
        id: remove
        objectName: "removePastedText"
        x: caption.x + caption.width + 4
        y: Math.round((row.height - height) / 2)
        width: 20
        height: 20
        iconName: "x"
        iconSize: 12
        name: qsTr("Remove pasted text")
        onClicked: row.panels.removePastedText()
    }
}
