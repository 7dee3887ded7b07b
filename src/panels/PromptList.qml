import QtQuick
import Quellora.Panels
import Quellora.Ui

/// List of the user's prompts. Inside the panels, because the area above them is click-through.
Card {
    id: card

    required property BottomPanelsModel panels
    property bool compact: false
    property real rowHeight: 36
    readonly property alias list: view
    /// Whether a row is marked although the list has no focus: the prompt box has it and its keys
    /// move the mark.
    property bool followsTyping: false
    /// Whether the keyboard is used; the focus ring of the current row is shown only then.
    property bool byKeyboard: false

    signal chosen(int row)
    /// The list was dismissed.
    signal closed()

    border.color: "#3f4351"

    ListView {
        id: view
        objectName: "promptList"
        anchors.fill: parent
        anchors.margins: 4
        model: card.panels.prompts
        clip: contentHeight > height
        boundsBehavior: Flickable.StopAtBounds
        currentIndex: 0
        // Without a highlight item, following the current item would animate forever.
        highlightFollowsCurrentItem: false
        onCurrentIndexChanged: positionViewAtIndex(currentIndex, ListView.Contain)
        keyNavigationEnabled: true

        Accessible.role: Accessible.List
        Accessible.name: qsTr("Prompts")

        Keys.onReturnPressed: card.chosen(currentIndex)
        Keys.onEnterPressed: card.chosen(currentIndex)
        Keys.onSpacePressed: card.chosen(currentIndex)
        Keys.onTabPressed: card.closed()
        Keys.onBacktabPressed: card.closed()
        Keys.onPressed: event => {
            card.byKeyboard = true
            if (event.key === Qt.Key_Home)
                currentIndex = 0
            else if (event.key === Qt.Key_End)
                currentIndex = count - 1
            else
                return
            event.accepted = true
        }

        delegate: Item {
            id: row

            required property int index
            required property string name
            required property string preview
            required property string hotkey
            readonly property bool isMarked: row.ListView.isCurrentItem
                                             && (card.followsTyping || card.byKeyboard)
            readonly property string keyText: card.panels.hotkeys[hotkey] ?? ""

            width: view.width
            height: card.rowHeight
            Accessible.role: Accessible.ListItem
            Accessible.name: name
            Accessible.description: keyText.length > 0 ? preview + ", " + keyText : preview
            Accessible.selectable: true
            Accessible.selected: isMarked
            Accessible.onPressAction: card.chosen(row.index)

            Rectangle {
                anchors.fill: parent
                radius: Tokens.radiusControl
                color: row.isMarked ? Tokens.sheetDark.selectedRow
                                    : area.pressed ? card.theme.pressed
                                                   : area.containsMouse ? card.theme.hover
                                                                        : "transparent"
            }
            FocusRing {
                anchors.margins: 0
                shown: card.byKeyboard && view.activeFocus && row.ListView.isCurrentItem
                controlRadius: Tokens.radiusControl - reach
            }
            Label {
                id: title
                x: 10
                width: Math.min(implicitWidth, Math.max(140, parent.width / 2))
                height: parent.height
                text: row.name
                type: Tokens.body
                font.weight: Font.Medium
                elide: Text.ElideRight
                Accessible.ignored: true
            }
            Label {
                x: title.x + title.width + 10
                width: (key.visible ? key.x : parent.width) - x - 10
                height: parent.height
                text: row.preview
                type: Tokens.label
                color: card.theme.dimText
                elide: Text.ElideRight
                Accessible.ignored: true
            }
            Kbd {
                id: key
                x: parent.width - width - 8
                anchors.verticalCenter: parent.verticalCenter
                visible: text.length > 0 && !card.compact
                text: row.keyText
            }
            MouseArea {
                id: area
                anchors.fill: parent
                hoverEnabled: true
                onClicked: card.chosen(row.index)
            }
        }
    }
    ScrollMark {
        flickable: view
        x: card.width - 5
    }
}
