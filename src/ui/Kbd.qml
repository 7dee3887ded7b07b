import QtQuick

/// A key combination as a small key cap.
Rectangle {
    id: kbd

    property alias text: label.text
    property ThemeTokens theme: Tokens.frame

    implicitWidth: label.implicitWidth + 2 * 5
    implicitHeight: 16
    radius: Tokens.radiusKbd
    color: Qt.rgba(kbd.theme.text.r, kbd.theme.text.g, kbd.theme.text.b, 0.08)
    border.width: 1
    border.color: Qt.rgba(kbd.theme.text.r, kbd.theme.text.g, kbd.theme.text.b, 0.15)

    Label {
        id: label
        anchors.centerIn: parent
        theme: kbd.theme
        type: Tokens.caption
        font.weight: Font.Medium
    }
}
