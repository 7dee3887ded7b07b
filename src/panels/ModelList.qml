import QtQuick
import Quellora.Panels
import Quellora.Ui

/// List of the available models. Inside the panels, because the area above them is click-through.
Card {
    id: card

    required property BottomPanelsModel panels
    property bool compact: false
    property real rowHeight: 36
    readonly property alias list: view
    /// Whether the keyboard is used; the focus ring of the current row is shown only then.
    property bool byKeyboard: false

    /// A model was chosen or the list was dismissed.
    signal closed()

    function choose(row) {
        card.panels.models.choose(card.panels.models.idAt(row))
        card.closed()
    }

    border.color: "#3f4351"

    ListView {
        id: view
        objectName: "modelList"
        anchors.fill: parent
        anchors.margins: 4
        model: card.panels.models
        clip: contentHeight > height
        boundsBehavior: Flickable.StopAtBounds
        currentIndex: card.panels.models.rowOf(card.panels.models.selectedId)
        // Without a highlight item, following the current item would animate forever.
        highlightFollowsCurrentItem: false
        onCurrentIndexChanged: positionViewAtIndex(currentIndex, ListView.Contain)
        keyNavigationEnabled: true

        Accessible.role: Accessible.List
        Accessible.name: qsTr("Model")

        Keys.onReturnPressed: card.choose(currentIndex)
        Keys.onEnterPressed: card.choose(currentIndex)
        Keys.onSpacePressed: card.choose(currentIndex)
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
            required property string modelId
            required property string displayName
            required property string descriptor
            required property string destination
            required property string pictureHint
            readonly property bool chosen: modelId === card.panels.models.selectedId

            width: view.width
            height: card.rowHeight
            Accessible.role: Accessible.ListItem
            Accessible.name: displayName
            Accessible.description: [descriptor, pictureHint].filter(text => text).join(". ")
            Accessible.selectable: true
            Accessible.selected: chosen
            Accessible.onPressAction: card.choose(row.index)

            Rectangle {
                anchors.fill: parent
                radius: Tokens.radiusControl
                color: row.chosen ? Tokens.sheetDark.selectedRow
                                  : area.pressed ? card.theme.pressed
                                                 : area.containsMouse ? card.theme.hover
                                                                      : "transparent"
            }
            FocusRing {
                anchors.margins: 0
                shown: card.byKeyboard && view.activeFocus && row.ListView.isCurrentItem
                controlRadius: Tokens.radiusControl - reach
            }
            Icon {
                x: 9
                anchors.verticalCenter: parent.verticalCenter
                visible: row.chosen
                name: "check"
                size: 16
                color: card.theme.accentText
            }
            Label {
                id: name
                x: 36
                width: Math.min(card.compact ? implicitWidth
                                             : Math.max(Tokens.grown(88), implicitWidth),
                                Math.max(180, parent.width / 2))
                height: parent.height
                text: row.displayName
                type: Tokens.body
                font.weight: Font.Medium
                elide: Text.ElideRight
                Accessible.ignored: true
            }
            Label {
                x: name.x + name.width + 10
                width: Math.max(0, place.x - x - (place.text ? 10 : 0))
                height: parent.height
                text: row.descriptor
                type: Tokens.label
                color: card.theme.dimText
                elide: Text.ElideRight
                Accessible.ignored: true
            }
            Label {
                id: place
                objectName: "destination"
                x: parent.width - width - 10
                // The end of a host name tells whose it is.
                width: Math.min(implicitWidth, parent.width - name.x - name.width - 20)
                height: parent.height
                text: row.destination
                type: Tokens.label
                color: card.theme.dimText
                elide: Text.ElideLeft
                Accessible.ignored: true
            }
            MouseArea {
                id: area
                anchors.fill: parent
                hoverEnabled: true
                onClicked: card.choose(row.index)
            }
        }
    }
    ScrollMark {
        flickable: view
        x: card.width - 5
    }
}
