import QtQuick
import Quellora.Ui

/// Edits a thread's title. Return and losing the focus save, Escape cancels.
TextField {
    id: field

    signal committed(string title)
    signal abandoned()

    /// Ignores focus loss while set.
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
