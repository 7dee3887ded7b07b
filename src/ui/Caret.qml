import QtQuick

/// The caret of a text item. Blinks at the system's rate, restarts on every move, and stays on 20 half
/// periods after the last one, so that an idle window is not redrawn.
Item {
    id: caret

    /// A TextInput, a TextEdit or a control derived from one.
    required property Item field
    property alias color: line.color
    property bool on: true
    property int blinksLeft: 20

    width: 1.5
    visible: caret.field.activeFocus && !caret.field.readOnly
             && caret.field.selectionStart === caret.field.selectionEnd

    onVisibleChanged: caret.blinksLeft = 20

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
            caret.blinksLeft = 20
            blink.restart()
        }
    }
    Timer {
        id: blink
        interval: Math.max(250, Qt.styleHints.cursorFlashTime / 2)
        running: caret.visible && caret.blinksLeft > 0 && Qt.styleHints.cursorFlashTime > 0
                 && Qt.application.state === Qt.ApplicationActive
        repeat: true
        onTriggered: {
            caret.on = !caret.on
            caret.blinksLeft -= 1
        }
        onRunningChanged: caret.on = true
    }
}
