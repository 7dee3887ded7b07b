import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// A card with the text to enter in the desktop's settings for each action, and a Copy button.
Card {
    id: card

    required property SettingsModel settings

    implicitHeight: column.height

    Column {
        id: column
        width: parent.width

        Repeater {
            model: card.settings.hotkeyRows

            delegate: Item {
                id: row

                required property int index
                required property string title
                required property string commandLine

                width: column.width
                height: visible ? 52 + Tokens.growth(20) + Tokens.growth(16) : 0
                visible: commandLine.length > 0

                Hairline {
                    width: parent.width
                    visible: row.index > 0
                    color: card.theme.line
                }
                Label {
                    id: titleLabel
                    x: Tokens.space3
                    y: 7
                    width: copy.x - Tokens.space3 - x
                    text: row.title
                    type: Tokens.body
                    theme: card.theme
                    elide: Text.ElideRight
                }
                Label {
                    x: Tokens.space3
                    y: titleLabel.y + titleLabel.height + 1
                    width: titleLabel.width
                    text: row.commandLine
                    type: Tokens.label
                    font.family: Tokens.monoFamily
                    color: card.theme.dimText
                    elide: Text.ElideMiddle
                }
                Button {
                    id: copy
                    objectName: "copyCommandLine"
                    anchors.verticalCenter: parent.verticalCenter
                    anchors.right: parent.right
                    anchors.rightMargin: Tokens.space3
                    width: Math.max(76, implicitWidth)
                    theme: card.theme
                    text: copied.running ? qsTr("Copied") : qsTr("Copy")
                    Accessible.name: qsTr("Copy %1").arg(row.commandLine)
                    onClicked: {
                        card.settings.hotkeyRows.copyCommandLine(row.index)
                        copied.restart()
                    }

                    Timer {
                        id: copied
                        interval: 1500
                    }
                }
            }
        }
    }
}
