import QtQuick

/// Text caret that stops blinking after a while without input, so that an idle panel is not
/// repainted.
Rectangle {
    id: caret

    required property TextEdit field
    property int blinksLeft: 0
    property bool isHidden: false
    readonly property int flashTime: Qt.styleHints.cursorFlashTime

    function restart() {
        isHidden = false
        blinksLeft = flashTime > 0 ? 20 : 0
    }

    visible: field.activeFocus && !isHidden
    width: 1.5

    Connections {
        target: caret.field
        function onCursorRectangleChanged() { caret.restart() }
        function onActiveFocusChanged() { caret.restart() }
    }
    Timer {
        interval: Math.max(100, caret.flashTime / 2)
        repeat: true
        running: caret.field.activeFocus && caret.blinksLeft > 0
        onTriggered: {
            caret.isHidden = !caret.isHidden && caret.blinksLeft > 1
            caret.blinksLeft -= 1
        }
    }
}
