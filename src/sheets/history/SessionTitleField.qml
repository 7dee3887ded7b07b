import QtQuick
import Quellora.Ui

/// The field in which a thread's title is edited. Return and leaving it save, Escape gives up.
TextField {
    id: field

    signal committed(string title)
    signal abandoned()

    /// Losing the keyboard means nothing now.
    property bool isHeld: false
    property bool isDone: false

    function finish(keep) {
        if (isDone)
            return
        isDone = true
        if (keep)
            field.committed(field.text)
        else
            field.abandoned()
    }

    implicitHeight: 28
    leftPadding: 8
    rightPadding: 8
    name: qsTr("Thread title")
    hint: qsTr("Return saves, Escape cancels")
    Component.onCompleted: {
        selectAll()
        forceActiveFocus()
    }
    onActiveFocusChanged: {
        if (!activeFocus && !isHeld)
            finish(true)
    }
    Keys.onReturnPressed: finish(true)
    Keys.onEnterPressed: finish(true)
    Keys.onEscapePressed: finish(false)
}
