import QtQuick
import Quellora.Ui

/// Edits a thread's title. Return and focus loss save, Escape cancels.
TextField {
    id: field

    signal committed(string title)
    signal cancelled()

    /// While set, focus loss does not save.
    property bool ignoresFocusLoss: false
    property bool isFinished: false

    function finish(commit) {
        if (isFinished)
            return
        isFinished = true
        if (commit)
            field.committed(field.text)
        else
            field.cancelled()
    }

    implicitHeight: 28 + Tokens.growth(20)
    leftPadding: 8
    rightPadding: 8
    name: qsTr("Thread title")
    hint: qsTr("Return saves, Escape cancels")
    Component.onCompleted: {
        selectAll()
        forceActiveFocus()
    }
    onActiveFocusChanged: {
        if (!activeFocus && !ignoresFocusLoss)
            finish(true)
    }
    Keys.onReturnPressed: finish(true)
    Keys.onEnterPressed: finish(true)
    Keys.onEscapePressed: finish(false)
}
