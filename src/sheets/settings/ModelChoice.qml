import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// Selects one of the available models.
Card {
    id: modelCard

    required property SettingsModel settings
    property bool compact: false

    implicitHeight: Math.max(none.height, column.height)

    ChoiceGroup {
        id: choiceGroup
        choices: rows
        current: {
            void rows.count
            return modelCard.settings.models.rowOf(modelCard.settings.models.selectedId)
        }
    }
    Label {
        id: none
        visible: rows.count === 0
        x: Tokens.space3
        height: 44 + Tokens.growth(20)
        text: qsTr("No models on offer")
        type: Tokens.body
        color: modelCard.theme.dimText
    }
    Column {
        id: column
        width: parent.width

        Repeater {
            id: rows
            model: modelCard.settings.models

            delegate: RadioRow {
                required property string modelId
                required property string displayName
                required property string descriptor
                required property string destination

                card: modelCard
                count: rows.count
                group: choiceGroup
                minimumNameWidth: modelCard.compact ? 0 : Tokens.grown(88)
                objectName: "model-" + modelId
                name: displayName
                hint: [descriptor, destination].filter(text => text).join(" · ")
                // Even if already selected: this turns the backend's choice into the user's.
                onPicked: modelCard.settings.models.choose(modelId)
            }
        }
    }
}
