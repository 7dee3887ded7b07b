import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// A stored thread. Clicking opens it; it can be exported, renamed in place and deleted.
ListRow {
    id: row

    required property int index
    required property string title
    required property int matchStart
    required property int matchLength
    required property string snippet
    required property int snippetStart
    required property int snippetLength
    required property string snippetPlace
    required property string time
    required property int turns
    required property int notes
    required property bool isCurrent
    property bool isEditing: false
    /// Set while the list changes, which temporarily removes the focus.
    property bool ignoresFocusLoss: false
    property bool hasActionFocus: false
    readonly property bool usesActions: hovered || activeFocus || hasActionFocus
    readonly property bool takesTab: ListView.isCurrentItem

    signal renamed(string title)
    signal editingChanged(bool isEditing)
    signal deleteRequested()
    /// The choices for the thread are wanted below @p corner, in the row's coordinates, by @p source.
    signal exportRequested(point corner, Item source)

    /// "3 turns"
    function countText(count, one, many) {
        return count === 1 ? "1 " + one : count + " " + many
    }
    function edit() {
        // Take the focus before the view moves it to the new current row: the previous row must have lost
        // it by then.
        row.forceActiveFocus(Qt.OtherFocusReason)
        row.editingChanged(true)
        isEditing = true
    }
    function endEditing() {
        // In an inactive window no item has active focus; the row gets it on reactivation.
        const hadFocus = editor.activeFocus || !row.Window.active
        isEditing = false
        row.editingChanged(false)
        if (hadFocus)
            row.forceActiveFocus(Qt.TabFocusReason)
    }

    implicitHeight: isEditing ? hint.y + hint.height + 4
                              : 48 + Tokens.growth(18) + Tokens.growth(16)
                                + (snippetLine.active ? 16 + Tokens.growth(16) : 0)
    focusPolicy: takesTab ? Qt.TabFocus : Qt.NoFocus
    name: title + ", " + time
    hint: [turns > 0 ? countText(turns, qsTr("turn"), qsTr("turns")) : "",
           notes > 0 ? countText(notes, qsTr("note"), qsTr("notes")) : "",
           snippet.length > 0 ? snippetPlace + ": " + snippet : ""]
          .filter(part => part.length > 0).join(", ")
    selected: isCurrent && !isEditing
    showsBar: true
    Keys.onPressed: event => {
        if (event.key === Qt.Key_F2)
            row.edit()
        else if (event.key === Qt.Key_Delete || event.key === Qt.Key_Backspace)
            row.deleteRequested()
        else if (event.key === Qt.Key_Menu)
            row.exportRequested(Qt.point(row.width - 4, row.height), row)
        else
            return
        event.accepted = true
    }

    Label {
        id: titleLabel
        visible: !row.isEditing
        x: Tokens.space3
        y: 7
        width: (row.usesActions ? actions.x : row.width) - x - Tokens.space2
        height: 18 + Tokens.growth(18)
        text: row.title
        type: TypeTokens {
            scale: Tokens.textScale
            designSize: 13
            designLine: 18
            weight: Font.Medium
        }
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true

        Loader {
            active: row.matchStart >= 0
            sourceComponent: SearchMark {
                label: titleLabel
                theme: row.theme
                start: row.matchStart
                length: row.matchLength
            }
        }
    }
    Loader {
        id: snippetLine
        active: row.snippet.length > 0
        visible: !row.isEditing
        x: Tokens.space3
        y: titleLabel.y + titleLabel.height
        width: titleLabel.width
        height: active ? 16 + Tokens.growth(16) : 0

        sourceComponent: Item {
            Label {
                id: place
                height: parent.height
                text: row.snippetPlace
                type: Tokens.caption
                color: row.snippetPlace === "Note" ? row.theme.noteKind : row.theme.aiKind
                Accessible.ignored: true
            }
            Label {
                id: snippetLabel
                x: place.width + Tokens.space2
                width: parent.width - x
                height: parent.height
                text: row.snippet
                type: Tokens.caption
                color: row.theme.dimText
                elide: Text.ElideRight
                Accessible.ignored: true

                SearchMark {
                    label: snippetLabel
                    theme: row.theme
                    start: row.snippetStart
                    length: row.snippetLength
                }
            }
        }
    }
    Row {
        id: facts
        visible: !row.isEditing
        x: Tokens.space3
        y: titleLabel.y + titleLabel.height + snippetLine.height
        spacing: Tokens.space2

        /// Width of a label at @p x that is at most @p width wide.
        function fitting(x, width) {
            return Math.max(0, Math.min(width, row.width - 2 * facts.x - x))
        }

        Label {
            width: facts.fitting(x, implicitWidth)
            elide: Text.ElideRight
            text: row.time
            type: Tokens.caption
            color: row.theme.dimText
            Accessible.ignored: true
        }
        Label {
            visible: row.turns > 0
            width: facts.fitting(x, implicitWidth)
            elide: Text.ElideRight
            text: row.countText(row.turns, qsTr("turn"), qsTr("turns"))
            type: Tokens.caption
            color: row.theme.aiKind
            Accessible.ignored: true
        }
        Label {
            visible: row.notes > 0
            width: facts.fitting(x, implicitWidth)
            elide: Text.ElideRight
            text: row.countText(row.notes, qsTr("note"), qsTr("notes"))
            type: Tokens.caption
            color: row.theme.noteKind
            Accessible.ignored: true
        }
    }
    // Created only for the hovered or focused row, because creating the buttons takes longer than the
    // rest of the row; for the row that Tab would reach in slices, as it changes with every letter of a
    // search.
    Loader {
        id: actions
        asynchronous: !row.usesActions
        active: row.usesActions || row.takesTab
        visible: row.usesActions && !row.isEditing
        x: row.width - 93
        y: Math.round((row.height - height) / 2)

        sourceComponent: Row {
            readonly property bool hasFocus: take.activeFocus || rename.activeFocus || remove.activeFocus

            onHasFocusChanged: row.hasActionFocus = hasFocus
            spacing: 2

            IconButton {
                id: take
                objectName: "exportThread"
                focusPolicy: row.takesTab ? Qt.TabFocus : Qt.NoFocus
                name: qsTr("Export or copy thread")
                iconName: "share"
                theme: row.theme
                onClicked: row.exportRequested(Qt.point(row.width - 4, row.height), take)
            }
            IconButton {
                id: rename
                objectName: "renameThread"
                focusPolicy: row.takesTab ? Qt.TabFocus : Qt.NoFocus
                name: qsTr("Rename thread")
                iconName: "pencil"
                theme: row.theme
                onClicked: row.edit()
            }
            IconButton {
                id: remove
                objectName: "deleteThread"
                focusPolicy: row.takesTab ? Qt.TabFocus : Qt.NoFocus
                name: qsTr("Delete thread")
                iconName: "trash-2"
                theme: row.theme
                foreground: hovered || down || visualFocus ? row.theme.dangerText : row.theme.icon
                onClicked: row.deleteRequested()
            }
        }
    }
    Loader {
        id: editor
        active: row.isEditing
        x: 4
        y: 7
        width: row.width - 12

        sourceComponent: SessionTitleField {
            theme: row.theme
            text: row.title
            ignoresFocusLoss: row.ignoresFocusLoss
            onCommitted: title => {
                row.endEditing()
                row.renamed(title)
            }
            onCancelled: row.endEditing()
        }
    }
    Label {
        id: hint
        visible: row.isEditing
        x: 10
        y: 38 + Tokens.growth(20)
        width: row.width - 2 * x
        elide: Text.ElideRight
        text: qsTr("Return saves · Esc cancels")
        type: Tokens.caption
        color: row.theme.dimText
    }
}
