import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// Edits a prompt's name and text. Return in the name moves on to the text; Ctrl+Return saves.
Item {
    id: editor

    required property string givenName
    required property string givenText
    required property string error
    property ThemeTokens theme: Tokens.sheetDark

    signal saved(string name, string text)
    signal cancelled()

    function save() {
        editor.saved(nameField.text, textField.text)
    }

    implicitHeight: buttons.y + buttons.height + Tokens.space3
    Component.onCompleted: nameField.forceActiveFocus(Qt.OtherFocusReason)

    Keys.onPressed: event => {
        if (event.key !== Qt.Key_Return && event.key !== Qt.Key_Enter
                || !(event.modifiers & Qt.ControlModifier))
            return
        event.accepted = true
        editor.save()
    }

    TextField {
        id: nameField
        objectName: "promptName"
        x: Tokens.space3
        y: Tokens.space3
        width: parent.width - 2 * x
        theme: editor.theme
        name: qsTr("Name of the prompt")
        placeholderText: qsTr("Name")
        text: editor.givenName
        maximumLength: 200
        Keys.onReturnPressed: event => event.modifiers & Qt.ControlModifier
                              ? editor.save() : textField.forceActiveFocus(Qt.TabFocusReason)
    }
    Rectangle {
        id: frame
        x: Tokens.space3
        y: nameField.y + nameField.height + Tokens.space2
        width: nameField.width
        height: 4 * Tokens.body.line + 14
        radius: Tokens.radiusControl
        color: editor.theme.input
        border.width: textField.activeFocus ? 2 : 1
        border.color: textField.activeFocus ? editor.theme.fieldFocus : editor.theme.outline
        antialiasing: true

        Flickable {
            id: scroller
            anchors.fill: parent
            anchors.topMargin: 7
            anchors.bottomMargin: 7
            contentWidth: width
            contentHeight: textField.height
            clip: true
            boundsBehavior: Flickable.StopAtBounds

            function reveal(cursor) {
                if (cursor.y < contentY)
                    contentY = cursor.y
                else if (cursor.y + cursor.height > contentY + height)
                    contentY = cursor.y + cursor.height - height
            }

            Basic.TextArea {
                id: textField
                objectName: "promptText"
                // Fills the frame, so that a press anywhere focuses the text.
                height: Math.max(implicitHeight, scroller.height)
                width: scroller.width
                padding: 0
                leftPadding: 10
                rightPadding: 10
                wrapMode: TextEdit.Wrap
                textFormat: TextEdit.PlainText
                selectByMouse: true
                persistentSelection: true
                text: editor.givenText
                placeholderText: qsTr("What to ask about the screen")
                placeholderTextColor: editor.theme.placeholder
                color: editor.theme.text
                selectionColor: editor.theme.selection
                selectedTextColor: editor.theme.text
                font.family: Tokens.family
                font.pixelSize: Tokens.body.size
                background: null
                cursorDelegate: Caret {
                    field: textField
                    color: editor.theme.accentText
                }
                onCursorRectangleChanged: scroller.reveal(cursorRectangle)
                KeyNavigation.priority: KeyNavigation.BeforeItem
                KeyNavigation.tab: cancelButton
                KeyNavigation.backtab: nameField

                Accessible.role: Accessible.EditableText
                Accessible.name: qsTr("Text of the prompt")
                Accessible.multiLine: true
            }
        }
    }
    Label {
        id: errorLabel
        objectName: "promptError"
        x: Tokens.space3
        y: frame.y + frame.height + Tokens.space1
        width: nameField.width
        visible: editor.error.length > 0
        text: editor.error
        type: Tokens.hint
        color: editor.theme.dangerText
        wrapMode: Text.Wrap
        Accessible.role: Accessible.AlertMessage
    }
    Row {
        id: buttons
        x: parent.width - width - Tokens.space3
        y: (errorLabel.visible ? errorLabel.y + errorLabel.height : frame.y + frame.height)
           + Tokens.space2
        spacing: Tokens.space2

        Button {
            id: cancelButton
            objectName: "promptCancel"
            theme: editor.theme
            kind: Button.Ghost
            text: qsTr("Cancel")
            onClicked: editor.cancelled()
        }
        Button {
            id: saveButton
            objectName: "promptSave"
            theme: editor.theme
            kind: Button.Primary
            text: qsTr("Save")
            shortcutText: qsTr("Ctrl+Return")
            onClicked: editor.save()
        }
    }
}
