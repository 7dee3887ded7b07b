import QtQuick
import Quellora.Panels
import Quellora.Ui

/// The row below the prompt box: the save switch, the send hint and the new-thread button.
Item {
    id: row

    required property BottomPanelsModel panels

    implicitHeight: 28 + Tokens.growth(16)

    Toggle {
        id: save
        objectName: "saveThread"
        x: 4
        width: 28 + 8 + 14 + 8 + saveLabel.implicitWidth
        name: qsTr("Save thread")
        checked: row.panels.settings.keepAIHistoryEnabled
        onToggled: {
            row.panels.settings.keepAIHistoryEnabled = checked
            // Toggling has overwritten the binding, so restore it.
            checked = Qt.binding(() => row.panels.settings.keepAIHistoryEnabled)
        }

        Icon {
            x: 36
            y: Math.round((save.height - height) / 2)
            size: 14
            name: "hard-drive"
            color: Tokens.frame.icon
        }
        Label {
            id: saveLabel
            x: 58
            height: parent.height
            text: save.name
            color: Tokens.frame.icon
            type: Tokens.control
            font.weight: Font.Normal
            Accessible.ignored: true
        }
    }
    Label {
        objectName: "sendHint"
        readonly property bool fits: row.width >= 560 - 24
                                     && newThread.x - save.x - save.width >= implicitWidth + 16
        visible: fits && row.panels.isPromptFocused
        // Centred in the space between the two controls.
        x: Math.round((save.x + save.width + newThread.x - width) / 2)
        height: parent.height
        text: qsTr("Return sends · Shift+Return adds a line")
        type: Tokens.caption
        color: Tokens.frame.dimText
    }
    Button {
        id: newThread
        objectName: "newThread"
        x: row.width - width
        leftPadding: 8
        rightPadding: 8
        width: 8 + 14 + 6 + newThreadLabel.implicitWidth + 8
        kind: Button.Ghost
        text: qsTr("New thread")
        shortcutText: row.panels.hotkeys.new_thread ?? ""
        tooltip: shortcutText.length > 0 ? text : ""
        onClicked: row.panels.startNewThread()

        contentItem: Item {
            Icon {
                y: (parent.height - height) / 2
                size: 14
                name: "plus"
                color: newThread.hovered ? newThread.theme.text : newThread.theme.dimText
            }
            Label {
                id: newThreadLabel
                x: 20
                height: parent.height
                text: newThread.text
                type: Tokens.control
                color: newThread.hovered ? newThread.theme.text : newThread.theme.dimText
                Accessible.ignored: true
            }
        }
    }
}
