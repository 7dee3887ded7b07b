import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The available models as radio rows.
Card {
    id: modelCard

    required property SettingsModel settings
    property bool compact: false

    implicitHeight: Math.max(44, 44 * rows.count)

    ChoiceGroup {
        id: order
        choices: rows
        current: {
            void rows.count
            return modelCard.settings.models.rowOf(modelCard.settings.models.selectedId)
        }
    }
    Label {
        visible: rows.count === 0
        x: Tokens.space3
        height: 44
        text: qsTr("No models on offer")
        type: Tokens.body
        color: modelCard.theme.dimText
    }
    Column {
        width: parent.width

        Repeater {
            id: rows
            model: modelCard.settings.models

            delegate: RadioRow {
                required property string modelId
                required property string displayName
                required property string descriptor

                card: modelCard
                count: rows.count
                group: order
                minimumNameWidth: modelCard.compact ? 0 : 88
                objectName: "model-" + modelId
                name: displayName
                hint: descriptor
                // Also the one in use: it may be the backend's choice, and becomes the user's.
                onPicked: modelCard.settings.models.choose(modelId)
            }
        }
    }
}
