import QtQuick

/// The text cursor. It stops blinking after a while without input, so that an idle panel causes no
/// repaints.
Rectangle {
    id: caret

    required property TextEdit field
    property int blinksLeft: 0
    property bool isDark: false
    readonly property int flashTime: Qt.styleHints.cursorFlashTime

    function restart() {
        isDark = false
        blinksLeft = flashTime > 0 ? 20 : 0
    }

    visible: field.activeFocus && !isDark
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
            caret.isDark = !caret.isDark && caret.blinksLeft > 1
            caret.blinksLeft -= 1
        }
    }
}
