import QtQuick
import Quellora.Panels
import Quellora.Ui

/// Row with the staged screenshot, which is sent with the next message.
Card {
    id: row

    required property BottomPanelsModel panels
    property bool compact: false

    border.width: 0

    Item {
        id: picture
        objectName: "attachmentPicture"
        x: compact ? 4 : 6
        y: Math.round((row.height - height) / 2)
        width: row.compact ? 44 : 72
        height: row.compact ? 28 : 45
        Accessible.role: Accessible.Graphic
        Accessible.name: qsTr("Attached screenshot")

        readonly property bool compact: row.compact

        Rectangle {
            anchors.fill: parent
            visible: preview.image.width === 0 || row.panels.hasAttachmentFailed
            radius: Tokens.radiusKbd
            color: "#3a3f4d"

            Icon {
                anchors.centerIn: parent
                visible: row.panels.hasAttachmentFailed
                name: "camera"
                color: row.theme.dimText
            }
        }
        PreviewImage {
            id: preview
            anchors.fill: parent
            image: row.panels.attachmentImage
        }
        Rectangle {
            anchors.fill: parent
            anchors.margins: -1
            radius: Tokens.radiusKbd + 1
            color: "transparent"
            border.width: 1
            border.color: Qt.rgba(1, 1, 1, 0.22)
        }
    }
    Column {
        id: labels
        x: picture.x + picture.width + (row.compact ? 8 : 12)
        width: remove.x - x - 8
        anchors.verticalCenter: parent.verticalCenter

        Label {
            width: parent.width
            text: qsTr("Screenshot attached")
            type: Tokens.control
            elide: Text.ElideRight
        }
        Label {
            objectName: "attachmentCaption"
            visible: !row.compact
            width: parent.width
            text: row.panels.attachmentCaption
            type: Tokens.caption
            color: row.theme.dimText
            elide: Text.ElideRight
        }
    }
    IconButton {
        id: remove
        objectName: "removeAttachment"
        x: row.width - width - (row.compact ? 2 : 6)
        y: Math.round((row.height - height) / 2)
        iconName: "x"
        name: qsTr("Remove screenshot")
        onClicked: {
            row.panels.removeAttachment()
            row.panels.focusPrompt()
        }
    }
}
