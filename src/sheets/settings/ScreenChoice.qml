import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// Selects the screens to capture.
Card {
    id: screenCard

    required property SettingsModel settings

    implicitHeight: column.height

    ChoiceGroup {
        id: choiceGroup
        choices: rows
        current: screenCard.settings.stored.captureAllScreens ? 1 : 0
    }
    Column {
        id: column
        width: parent.width

        Repeater {
            id: rows
            model: [qsTr("Screen with the pointer"), qsTr("All screens")]

            delegate: RadioRow {
                required property string modelData

                card: screenCard
                count: rows.count
                group: choiceGroup
                objectName: "captureScreens-" + index
                name: modelData
                onPicked: screenCard.settings.stored.captureAllScreens = index === 1
            }
        }
    }
}
