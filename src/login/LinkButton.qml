import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// A link, 28 pixels high, more with larger text, optionally preceded by plain text.
Basic.AbstractButton {
    id: control

    property ThemeTokens theme: Tokens.login
    property string leadingText
    property string name: text
    property color textColor: theme.dimText
    /// Accessible role, read by the accessibility interface.
    property int role: Accessible.Link
    property int weight: Font.Normal

    height: implicitHeight
    implicitHeight: 28 + Tokens.growth(16)
    implicitWidth: row.implicitWidth + 4
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    contentItem: Item {
        Row {
            id: row
            anchors.centerIn: parent
            spacing: 3

            Label {
                visible: control.leadingText.length > 0
                text: control.leadingText
                color: control.theme.dimText
                Accessible.ignored: true
            }
            Label {
                text: control.text
                color: control.hovered || control.down ? control.theme.text : control.textColor
                font.weight: control.weight
                font.underline: control.hovered && control.leadingText.length > 0
                Accessible.ignored: true
            }
        }
    }

    background: Item {
        FocusRing {
            shown: control.visualFocus
            theme: control.theme
            controlRadius: 4
        }
    }

    HoverHandler { cursorShape: Qt.PointingHandCursor }

    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    Accessible.role: role
    Accessible.name: control.name
    Accessible.onPressAction: control.clicked()
}
