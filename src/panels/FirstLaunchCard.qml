import QtQuick
import Quellora.Panels
import Quellora.Ui

/// Card with the basic shortcuts, shown until acknowledged or until the first successful capture.
Card {
    id: card

    required property BottomPanelsModel panels
    property bool compact: false

    bar: theme.track
    border.width: 0
    implicitHeight: content.y + content.height + 12

    Accessible.role: Accessible.Grouping
    Accessible.name: title.text

    component ShortcutRow: Item {
        id: row

        required property string text
        default property alias keys: keyCaps.data
        readonly property real capsWidth: {
            let sum = 0
            for (let i = 0; i < keyCaps.children.length; ++i) {
                const cap = keyCaps.children[i]
                if (cap.visible)
                    sum += cap.width + (sum > 0 ? keyCaps.spacing : 0)
            }
            return sum
        }
        readonly property bool fits: label.implicitWidth + 12 + capsWidth <= width

        width: parent ? parent.width : 0
        height: fits ? lineHeight : lineHeight + 2 + keyCaps.height + 2
        readonly property real lineHeight: Math.max(20, label.height)

        Label {
            id: label
            text: row.text
            type: Tokens.body
            color: "#d9dbe1"
            width: row.fits ? implicitWidth : row.width
            elide: Text.ElideRight
        }
        Flow {
            id: keyCaps
            x: row.fits ? row.width - width : 0
            width: row.fits ? row.capsWidth : row.width
            y: row.fits ? Math.round((row.lineHeight - height) / 2) : row.lineHeight + 2
            spacing: 4
        }
    }

    component KeyCap: Kbd {
        height: 18 + Tokens.growth(16)
        pad: 6
        visible: text.length > 0
    }

    Icon {
        x: 14
        y: Math.round((title.height - height) / 2)
        name: "keyboard"
        color: card.theme.text
    }
    Label {
        id: title
        x: 38
        width: card.width - x - 14
        height: 36 + Tokens.growth(20)
        text: qsTr("Shortcuts to start with")
        type: Tokens.section
        elide: Text.ElideRight
        Accessible.role: Accessible.Heading
    }
    Column {
        id: content
        x: card.compact ? 14 : 38
        y: title.height - 1
        width: card.width - x - 14
        spacing: 5

        ShortcutRow {
            text: qsTr("Capture screen and send to %1").arg(card.panels.models.answererName)
            KeyCap { text: card.panels.hotkeys.capture ?? "" }
        }
        ShortcutRow {
            text: qsTr("Toggle overlay visibility")
            KeyCap { text: card.panels.hotkeys.toggle ?? "" }
        }
        ShortcutRow {
            text: qsTr("Increase opacity · Decrease opacity")
            KeyCap { text: card.panels.hotkeys.opacity_up ?? "" }
            KeyCap { text: card.panels.hotkeys.opacity_down ?? "" }
        }
        Label {
            objectName: "noKeysHint"
            width: parent.width
            visible: !card.panels.hotkeys.capture
            text: qsTr("No key captures the screen yet: see Settings.")
            type: Tokens.hint
            color: card.theme.dimText
            wrapMode: Text.Wrap
        }
        Item {
            width: parent.width
            height: hint.height + 12

            Icon {
                y: 5 + Math.round((hint.type.line - height) / 2)
                size: 14
                name: "mouse-pointer-click"
                color: card.theme.dimText
            }
            Label {
                id: hint
                x: 22
                y: 5
                width: parent.width - x
                text: qsTr("Clicks on the answer go through to the app underneath. "
                           + "Scroll with the bar on the right.")
                type: Tokens.hint
                color: card.theme.dimText
                wrapMode: Text.Wrap
            }
        }
        Button {
            objectName: "gotIt"
            text: qsTr("Got it")
            onClicked: {
                card.panels.settings.hasLaunchedBefore = true
                card.panels.focusPrompt()
            }
        }
    }
}
