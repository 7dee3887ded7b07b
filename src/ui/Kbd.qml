import QtQuick

/// A key combination as a small key cap.
Rectangle {
    id: kbd

    property alias text: label.text
    property ThemeTokens theme: Tokens.frame
    /// Padding on either side of the text.
    property int pad: 5

    implicitWidth: label.implicitWidth + 2 * kbd.pad
    implicitHeight: 16 + Tokens.growth(16)
    radius: Tokens.radiusKbd
    color: Tokens.faded(kbd.theme.text, 0.08)
    border.width: 1
    border.color: Tokens.faded(kbd.theme.text, 0.22)

    Label {
        id: label
        anchors.centerIn: parent
        theme: kbd.theme
        type: Tokens.caption
        font.weight: Font.Medium
    }
}
