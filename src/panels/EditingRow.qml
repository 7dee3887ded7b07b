import QtQuick
import Quellora.Panels
import Quellora.Ui

/// Row that says that the prompt box holds the last question, to be sent in its place.
Card {
    id: row

    required property BottomPanelsModel panels

    border.width: 0

    Icon {
        x: 12
        y: Math.round((row.height - height) / 2)
        size: 14
        name: "pencil"
        color: row.theme.accentText
    }
    Label {
        id: words
        objectName: "editingWords"
        x: 34
        width: cancel.x - x - 8
        height: row.height
        text: !row.panels.isScreenshotKept ? qsTr("Editing the last question")
              : withScreenshot.advanceWidth <= width ? withScreenshot.text
                                                     : qsTr("Editing · with its screenshot")
        type: Tokens.control
        elide: Text.ElideRight

        TextMetrics {
            id: withScreenshot
            font: words.font
            text: qsTr("Editing the last question · with its screenshot")
        }
    }
    IconButton {
        id: cancel
        objectName: "cancelEditing"
        x: row.width - width - 6
        y: Math.round((row.height - height) / 2)
        iconName: "x"
        name: qsTr("Cancel editing")
        shortcutText: qsTr("Escape")
        onClicked: {
            row.panels.cancelEditing()
            row.panels.focusPrompt()
        }
    }
}
