import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// Selects the response text colour: swatches and a hex field for a custom colour.
Item {
    id: choice

    required property SettingsModel settings
    property ThemeTokens theme: Tokens.sheetDark
    readonly property int perRow: Math.max(1, Math.floor((swatchSpace + 8) / 36))
    /// Whether swatches and field fit side by side; otherwise the field is below.
    readonly property bool isWide: width >= buttons.count * 36 - 8 + 24 + field.width
    readonly property real swatchSpace: isWide ? width - field.width - 24 : width
    readonly property int swatchLines: Math.ceil(buttons.count / perRow)
    readonly property real swatchHeight: swatchLines * 36 - 8

    height: field.y + field.height + (error.visible ? error.height + 6 : 0)

    ChoiceGroup {
        id: choiceGroup
        choices: buttons
        current: choice.settings.textColors.chosenRow
    }
    Repeater {
        id: buttons
        model: choice.settings.textColors

        delegate: Choice {
            id: swatch

            required property string colorName
            required property string swatchId
            required property color shownColor
            readonly property bool isBright: 0.299 * shownColor.r + 0.587 * shownColor.g
                                             + 0.114 * shownColor.b > 0.55

            theme: choice.theme
            group: choiceGroup
            objectName: "swatch-" + swatchId
            name: qsTr("Text color: %1").arg(colorName)
            x: (index % choice.perRow) * 36
            y: Math.floor(index / choice.perRow) * 36 + (choice.isWide ? Math.round((field.height - height) / 2) : 0)
            width: 28
            height: 28
            onPicked: choice.settings.chooseTextColor(index)

            background: Item {
                Rectangle {
                    anchors.fill: parent
                    radius: 14
                    antialiasing: true
                    color: swatch.shownColor
                    border.width: swatch.chosen ? 0 : 1
                    border.color: Qt.rgba(0.5, 0.5, 0.5, 0.55)
                    scale: swatch.down ? 0.92 : 1
                }
                Rectangle {
                    // A ring marks the chosen colour, a stronger one the keyboard focus.
                    anchors.fill: parent
                    anchors.margins: -4
                    radius: 18
                    visible: swatch.chosen || swatch.visualFocus
                    antialiasing: true
                    color: "transparent"
                    border.width: swatch.visualFocus ? 3 : 2
                    border.color: choice.theme.ring
                }
            }
            contentItem: Item {
                Icon {
                    anchors.centerIn: parent
                    visible: swatch.chosen
                    name: "check"
                    size: 14
                    strokeWidth: 2.25
                    color: swatch.isBright ? "#1c1e24" : "#ffffff"
                }
            }
            ToolTip {
                target: swatch
                text: swatch.colorName
            }
        }
    }
    TextField {
        id: field
        objectName: "hexField"
        x: choice.isWide ? choice.width - width : 0
        y: choice.isWide ? 0 : choice.swatchHeight + 12
        width: Tokens.grown(112)
        theme: choice.theme
        name: qsTr("Custom text color")
        hint: choice.settings.hexError
        placeholderText: "#8899aa"
        maximumLength: 64
        failed: choice.settings.hexError.length > 0
        text: choice.settings.hexInput
        onTextEdited: choice.settings.hexInput = text
        onAccepted: choice.settings.commitHexInput()
        onActiveFocusChanged: {
            if (!activeFocus)
                choice.settings.leaveHexInput()
        }
        Connections {
            target: choice.settings
            function onHexInputChanged() { field.text = choice.settings.hexInput }
        }
    }
    Row {
        id: error
        objectName: "hexError"
        x: choice.isWide ? choice.width - width : 0
        y: field.y + field.height + 6
        height: errorLabel.height
        spacing: 6
        visible: choice.settings.hexError.length > 0

        Icon {
            y: (errorLabel.height - height) / 2
            name: "triangle-alert"
            size: 14
            color: choice.theme.dangerText
        }
        Label {
            id: errorLabel
            width: Math.min(implicitWidth, choice.width - 20)
            text: choice.settings.hexError
            type: Tokens.hint
            color: choice.theme.dangerText
            wrapMode: Text.Wrap
            Accessible.role: Accessible.AlertMessage
        }
    }
}
