import QtQuick

/// The caret of a text item: blinks at the system's rate while visible, and stays on briefly after
/// every move.
Item {
    id: caret

    /// A TextInput, TextEdit or a control made from one.
    required property Item field
    property alias color: line.color
    property bool on: true

    width: 1.5
    visible: caret.field.activeFocus && !caret.field.readOnly
             && caret.field.selectionStart === caret.field.selectionEnd

    Rectangle {
        id: line
        anchors.verticalCenter: parent.verticalCenter
        width: 1.5
        height: Math.min(parent.height, Math.round(caret.field.font.pixelSize * 1.2))
        visible: caret.on
    }
    Connections {
        target: caret.field
        function onCursorPositionChanged() {
            caret.on = true
            blink.restart()
        }
    }
    Timer {
        id: blink
        interval: Math.max(250, Qt.styleHints.cursorFlashTime / 2)
        running: caret.visible && Qt.styleHints.cursorFlashTime > 0
                 && Qt.application.state === Qt.ApplicationActive
        repeat: true
        onTriggered: caret.on = !caret.on
        onRunningChanged: caret.on = true
    }
}
