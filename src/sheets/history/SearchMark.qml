import QtQuick
import Quellora.Ui

/// Marks an occurrence of the search text in a label of one line.
Item {
    id: mark

    required property Label label
    /// The occurrence in the label's text.
    required property int start
    required property int length
    property ThemeTokens theme: Tokens.sheetDark

    x: before.advanceWidth
    width: Math.min(match.advanceWidth, label.width - x)
    height: label.height
    visible: x < label.width

    // Behind the text.
    z: -1
    Rectangle {
        anchors.fill: parent
        anchors.topMargin: 1
        radius: 2
        color: mark.theme.selection
    }
    Rectangle {
        y: parent.height - 2
        width: parent.width
        height: 1
        color: mark.theme.accentText
    }
    TextMetrics {
        id: before
        font: mark.label.font
        text: mark.label.text.substring(0, mark.start)
    }
    TextMetrics {
        id: match
        font: mark.label.font
        text: mark.label.text.substring(mark.start, mark.start + mark.length)
    }
}
