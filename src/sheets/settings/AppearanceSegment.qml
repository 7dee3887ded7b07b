import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// Segmented control for the appearance: light, dark or that of the system.
Rectangle {
    id: segment

    required property SettingsModel settings
    property ThemeTokens theme: Tokens.sheetDark
    /// Available width; the segments shrink to fit.
    property real available: width
    readonly property real step: Math.min(Tokens.grown(96), Math.floor((available - 4) / 3))

    width: 3 * step + 4
    height: 32 + Tokens.growth(16)
    radius: Tokens.radiusCard
    color: theme.raised
    border.width: 1
    border.color: theme.line
    antialiasing: true

    ChoiceGroup {
        id: choiceGroup
        choices: buttons
        current: buttons.model.findIndex(
                     choice => choice.value === segment.settings.stored.appearance)
    }
    Repeater {
        id: buttons
        model: [
            {"value": Settings.Light, "id": "light", "label": qsTr("Light"), "icon": "sun"},
            {"value": Settings.Dark, "id": "dark", "label": qsTr("Dark"), "icon": "moon"},
            {"value": Settings.System, "id": "system", "label": qsTr("System"), "icon": "monitor"}
        ]

        delegate: Choice {
            id: button

            required property var modelData
            readonly property color contentColor: chosen || hovered ? segment.theme.text
                                                           : segment.theme.dimText

            theme: segment.theme
            group: choiceGroup
            objectName: "appearance-" + modelData.id
            name: modelData.label
            x: 2 + index * segment.step
            y: 2
            width: segment.step
            height: segment.height - 4
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
                        // Left out where only the words fit.
                        visible: segment.step >= 14 + 6 + label.implicitWidth + 8
                        name: button.modelData.icon
                        size: 14
                        color: button.contentColor
                    }
                    Label {
                        id: label
                        width: Math.min(implicitWidth, segment.step - 8)
                        elide: Text.ElideRight
                        anchors.verticalCenter: parent.verticalCenter
                        text: button.modelData.label
                        type: Tokens.control
                        color: button.contentColor
                        Accessible.ignored: true
                    }
                }
            }
        }
    }
}
