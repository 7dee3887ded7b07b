import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The user's prompts in a card, and a button that adds one.
Item {
    id: settings

    required property PromptRows rows
    property ThemeTokens theme: Tokens.sheetDark

    /// Requests scrolling the item into view.
    signal revealRequested(Item item)

    function focusAdd() {
        if (add.enabled)
            add.forceActiveFocus(Qt.TabFocusReason)
    }

    implicitHeight: add.y + add.height
    height: implicitHeight

    Card {
        id: card
        width: parent.width
        height: column.height
        visible: repeater.count > 0
        theme: settings.theme

        Column {
            id: column
            width: parent.width

            Repeater {
                id: repeater
                model: settings.rows
                // The focus goes on instead of getting lost with a row.
                onItemRemoved: (index, item) => {
                    for (let focused = Window.activeFocusItem; focused; focused = focused.parent) {
                        if (focused === item)
                            Qt.callLater(settings.focusAdd)
                    }
                }

                delegate: PromptRow {
                    id: row
                    rows: settings.rows
                    theme: settings.theme
                    width: column.width
                    isFirst: index === 0
                    isLast: index === repeater.count - 1
                    outerRadius: card.radius
                    onRevealRequested: settings.revealRequested(row)
                }
            }
        }
    }
    Button {
        id: add
        objectName: "addPrompt"
        y: card.visible ? card.height + Tokens.space3 : 0
        enabled: settings.rows.canAdd
        theme: settings.theme
        text: qsTr("Add a prompt")
        tooltip: settings.rows.isFull ? qsTr("There is room for 30 prompts") : ""
        onClicked: settings.rows.add()
    }
}
