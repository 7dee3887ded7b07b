import QtQuick
import Quellora.Ui

/// A preview of a screenshot, 72 × 45 px, or 44 × 28 in compact layouts. Shows a grey box with a camera
/// icon if the image cannot be loaded.
Item {
    id: thumbnail

    property url source
    property ThemeTokens theme: Tokens.frame
    property bool compact: false
    property string name
    readonly property bool failed: picture.status === Image.Error
                                   || picture.status === Image.Null

    implicitWidth: compact ? 44 : 72
    implicitHeight: compact ? 28 : 45
    Accessible.role: Accessible.Graphic
    Accessible.name: name

    Rectangle {
        anchors.fill: parent
        radius: Tokens.radiusKbd
        color: thumbnail.theme.input
        visible: picture.status !== Image.Ready

        Icon {
            anchors.centerIn: parent
            visible: thumbnail.failed
            name: "camera"
            color: thumbnail.theme.dimText
        }
    }
    Image {
        id: picture
        anchors.fill: parent
        source: thumbnail.source
        asynchronous: true
        cache: false
        sourceSize: Qt.size(144, 0)
        fillMode: Image.PreserveAspectCrop
        smooth: true
        mipmap: true
    }
    Rectangle {
        anchors.fill: parent
        anchors.margins: -1
        radius: Tokens.radiusKbd + 1
        color: "transparent"
        border.width: 1
        border.color: Qt.rgba(1, 1, 1, 0.22)
        antialiasing: true
    }
}
