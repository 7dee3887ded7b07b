import QtQuick
import Quellora.Settings
import Quellora.Ui

/// The models on offer, one radio each.
Card {
    id: card

    required property SettingsModel settings
    property bool compact: false

    implicitHeight: Math.max(44, 44 * rows.count)

    ChoiceGroup {
        id: order
        choices: rows
        current: {
            void rows.count
            return card.settings.models.rowOf(card.settings.selectedModelId)
        }
    }
    Label {
        visible: rows.count === 0
        x: Tokens.space3
        height: 44
        text: qsTr("No models on offer")
        type: Tokens.body
        color: card.theme.dimText
    }
    Column {
        width: parent.width

        Repeater {
            id: rows
            model: card.settings.models

            delegate: Choice {
                id: row

                required property string modelId
                required property string displayName
                required property string descriptor

                theme: card.theme
                group: order
                width: card.width
                height: 44
                objectName: "model-" + modelId
                name: displayName
                hint: descriptor
                onPicked: card.settings.selectModel(modelId)

                background: RowBackground {
                    control: row
                    theme: card.theme
                    selected: row.chosen
                    isFirst: row.index === 0
                    isLast: row.index === rows.count - 1
                    outerRadius: card.radius
                }

                // The mark of a radio: a ring, filled with a hole when chosen.
                Rectangle {
                    x: Tokens.space3
                    anchors.verticalCenter: parent.verticalCenter
                    width: 16
                    height: 16
                    radius: 8
                    antialiasing: true
                    color: "transparent"
                    border.width: row.chosen ? 5 : 1.5
                    border.color: row.chosen ? card.theme.accent : card.theme.outline
                }
                Label {
                    id: words
                    x: 40
                    width: Math.min(Math.max(card.compact ? 0 : 88, implicitWidth),
                                    row.width - x - Tokens.space3)
                    height: parent.height
                    text: row.displayName
                    type: Tokens.body
                    font.weight: Font.Medium
                    theme: card.theme
                    elide: Text.ElideRight
                    Accessible.ignored: true
                }
                Label {
                    x: words.x + words.width + Tokens.space3
                    width: Math.max(0, row.width - x - Tokens.space3)
                    height: parent.height
                    text: row.descriptor
                    color: card.theme.dimText
                    elide: Text.ElideRight
                    Accessible.ignored: true
                }
            }
        }
    }
}
