import QtQuick
import Quellora.Panels
import Quellora.Ui

/// Takes a picture that is dropped on the panel, and says so while it is over it.
DropArea {
    id: area

    required property BottomPanelsModel panels

    onEntered: drag => drag.accepted = panels.acceptsDrop(drag.formats, drag.urls)
    onDropped: drop => {
        const format = panels.droppedFormat(drop.formats, drop.urls)
        drop.accepted = true
        panels.drop(drop.urls, format.length > 0 ? drop.getDataAsArrayBuffer(format)
                                                 : new ArrayBuffer(0))
    }

    Rectangle {
        objectName: "dropMark"
        visible: area.containsDrag
        anchors.fill: parent
        radius: Tokens.radiusWindow
        color: "transparent"
        border.width: 2
        border.color: Tokens.frame.fieldFocus
        antialiasing: true

        Rectangle {
            anchors.centerIn: words
            width: words.implicitWidth + 24
            height: words.implicitHeight + 12
            radius: Tokens.radiusControl
            color: Tokens.frame.raised
            border.width: 1
            border.color: Tokens.frame.fieldFocus
        }
        Label {
            id: words
            objectName: "dropWords"
            anchors.horizontalCenter: parent.horizontalCenter
            y: 34 + Math.round((38 - height) / 2)
            text: qsTr("Drop to attach the picture")
            type: Tokens.control
        }
    }
}
