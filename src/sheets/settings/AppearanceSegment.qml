import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// Light, dark, or the desktop's appearance.
Rectangle {
    id: segment

    required property SettingsModel settings
    property ThemeTokens theme: Tokens.sheetDark
    /// Narrower segments for narrow windows.
    property real available: width
    readonly property real step: Math.min(96, Math.floor((available - 4) / 3))

    width: 3 * step + 4
    height: 32
    radius: Tokens.radiusCard
    color: theme.raised
    border.width: 1
    border.color: theme.line
    antialiasing: true

    ChoiceGroup {
        id: order
        choices: buttons
        current: buttons.model.findIndex(
                     choice => choice.value === segment.settings.stored.appearance)
    }
    Repeater {
        id: buttons
        model: [
            {"value": Settings.Light, "id": "light", "words": qsTr("Light"), "icon": "sun"},
            {"value": Settings.Dark, "id": "dark", "words": qsTr("Dark"), "icon": "moon"},
            {"value": Settings.System, "id": "system", "words": qsTr("System"), "icon": "monitor"}
        ]

        delegate: Choice {
            id: button

            required property var modelData
            readonly property color ink: chosen || hovered ? segment.theme.text
                                                           : segment.theme.dimText

            theme: segment.theme
            group: order
            objectName: "appearance-" + modelData.id
            name: modelData.words
            x: 2 + index * segment.step
            y: 2
            width: segment.step
            height: 28
            onPicked: segment.settings.stored.appearance = modelData.value

            background: Item {
                Rectangle {
                    anchors.fill: parent
                    anchors.margins: button.chosen ? -1 : 0
                    radius: 7
                    antialiasing: true
                    color: button.chosen ? segment.theme.segmentOn
                         : button.down ? segment.theme.pressed
                         : button.hovered ? segment.theme.hover
                                          : Tokens.faded(segment.theme.hover, 0)
                    border.width: button.chosen ? 1 : 0
                    border.color: segment.theme.outline
                }
                FocusRing {
                    shown: button.visualFocus
                    theme: segment.theme
                    controlRadius: 6
                }
            }
            contentItem: Item {
                Row {
                    anchors.centerIn: parent
                    spacing: 6

                    Icon {
                        anchors.verticalCenter: parent.verticalCenter
                        name: button.modelData.icon
                        size: 14
                        color: button.ink
                    }
                    Label {
                        anchors.verticalCenter: parent.verticalCenter
                        text: button.modelData.words
                        type: Tokens.control
                        color: button.ink
                        Accessible.ignored: true
                    }
                }
            }
        }
    }
}
