import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Sheets
import Quellora.Ui

/// One of the user's prompts. Clicking edits it; the pointer or the focus shows the buttons that move
/// and delete it.
Item {
    id: row

    required property int index
    required property string name
    required property string text
    required property bool isEditing
    required property bool isAsking
    required property PromptRows rows
    property ThemeTokens theme: Tokens.sheetDark
    property bool isFirst: false
    property bool isLast: false
    property real outerRadius: 0
    readonly property bool showsTools: !rows.isBusy
                                       && (hover.hovered || button.visualFocus || tools.hasFocus)
    readonly property real titleHeight: 40 + Tokens.growth(20)

    /// Requests scrolling this row into view.
    signal revealRequested()

    onImplicitHeightChanged: {
        if (isEditing || isAsking)
            revealRequested()
    }
    onIsEditingChanged: takeFocusBack(isEditing)
    onIsAskingChanged: takeFocusBack(isAsking)

    function takeFocusBack(isBusy) {
        if (isBusy && isAsking)
            cancel.forceActiveFocus(Qt.TabFocusReason)
        else if (!isBusy && !rows.isBusy)
            button.forceActiveFocus(Qt.TabFocusReason)
    }

    objectName: "prompt-" + index
    implicitHeight: isEditing ? editor.implicitHeight : isAsking ? titleHeight + choices.height + 10
                                                                 : titleHeight

    HoverHandler { id: hover }
    Basic.AbstractButton {
        id: button
        objectName: "promptButton-" + row.index
        anchors.fill: parent
        padding: 0
        hoverEnabled: true
        visible: !row.isEditing
        focusPolicy: Qt.TabFocus
        onClicked: row.rows.edit(row.index)

        background: RowBackground {
            control: button
            theme: row.theme
            isFirst: row.isFirst
            isLast: row.isLast
            outerRadius: row.outerRadius
        }

        Keys.onReturnPressed: button.clicked()
        Keys.onEnterPressed: button.clicked()
        Keys.onDeletePressed: row.rows.askToRemove(row.index)
        Keys.onPressed: event => {
            if (event.modifiers !== Qt.AltModifier
                    || event.key !== Qt.Key_Up && event.key !== Qt.Key_Down)
                return
            event.accepted = true
            row.rows.move(row.index, event.key === Qt.Key_Up ? -1 : 1)
        }

        Accessible.role: Accessible.Button
        Accessible.name: qsTr("Prompt %1").arg(row.name)
        Accessible.description: row.text
        Accessible.onPressAction: button.clicked()
    }
    Label {
        id: title
        x: Tokens.space3
        width: Math.min(implicitWidth, (row.width - tools.width) / 2)
        height: row.titleHeight
        visible: !row.isEditing
        text: row.name
        type: Tokens.body
        font.weight: Font.Medium
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Label {
        x: title.x + title.width + Tokens.space3
        width: (row.showsTools ? tools.x : row.width - Tokens.space3) - x
        height: row.titleHeight
        visible: !row.isEditing
        text: row.text.replace(/\s+/g, " ")
        type: Tokens.label
        color: row.theme.dimText
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Row {
        id: tools
        readonly property bool hasFocus: up.activeFocus || down.activeFocus || trash.activeFocus

        x: row.width - width - Tokens.space2
        y: Math.round((row.titleHeight - height) / 2)
        visible: row.showsTools

        IconButton {
            id: up
            objectName: "promptUp-" + row.index
            theme: row.theme
            enabled: !row.isFirst
            iconName: "arrow-up"
            name: qsTr("Move %1 up").arg(row.name)
            shortcutText: qsTr("Alt+Up")
            onClicked: row.rows.move(row.index, -1)
        }
        IconButton {
            id: down
            objectName: "promptDown-" + row.index
            theme: row.theme
            enabled: !row.isLast
            iconName: "arrow-down"
            name: qsTr("Move %1 down").arg(row.name)
            shortcutText: qsTr("Alt+Down")
            onClicked: row.rows.move(row.index, 1)
        }
        IconButton {
            id: trash
            objectName: "promptDelete-" + row.index
            theme: row.theme
            iconName: "trash-2"
            name: qsTr("Delete %1").arg(row.name)
            shortcutText: qsTr("Delete")
            onClicked: row.rows.askToRemove(row.index)
        }
    }
    Label {
        x: Tokens.space3
        y: row.titleHeight
        width: choices.x - x - Tokens.space2
        height: choices.height
        visible: row.isAsking
        text: qsTr("Delete this prompt and its hotkey?")
        type: Tokens.hint
        theme: row.theme
        elide: Text.ElideRight
        Accessible.role: Accessible.AlertMessage
    }
    Row {
        id: choices
        x: row.width - width - Tokens.space3
        y: row.titleHeight
        visible: row.isAsking
        spacing: Tokens.space2

        Button {
            id: cancel
            objectName: "promptKeep-" + row.index
            theme: row.theme
            text: qsTr("Cancel")
            onClicked: row.rows.cancel()
        }
        Button {
            objectName: "promptRemove-" + row.index
            theme: row.theme
            kind: Button.Danger
            text: qsTr("Delete")
            onClicked: row.rows.remove()
        }
    }
    Hairline {
        y: row.height - 1
        width: row.width
        visible: row.isEditing && !row.isLast
        color: row.theme.line
    }
    Loader {
        id: editor
        width: row.width
        active: row.isEditing
        visible: active

        sourceComponent: PromptEditor {
            theme: row.theme
            givenName: row.name
            givenText: row.text
            error: row.rows.error
            onSaved: (name, text) => row.rows.save(name, text)
            onCancelled: row.rows.cancel()
        }
    }
}
