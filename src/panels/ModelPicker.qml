import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Panels
import Quellora.Ui

/// Button that shows the selected model and opens the model list.
Basic.AbstractButton {
    id: picker

    required property BottomPanelsModel panels
    property real maximumLabelWidth: 120
    property bool isOpen: false
    /// Read by the accessibility interface, like value, expandable and expanded.
    readonly property int role: Accessible.ComboBox
    readonly property string value: panels.models.selectedName
    readonly property bool expandable: true
    readonly property bool expanded: isOpen
    readonly property ThemeTokens theme: Tokens.frame

    objectName: "modelPicker"
    implicitHeight: 28 + Tokens.growth(16)
    implicitWidth: 6 + label.width + 4 + 12 + 6
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    enabled: panels.models.count > 0
    opacity: enabled ? 1 : Tokens.disabledOpacity

    background: Rectangle {
        radius: Tokens.radiusControl
        color: picker.down ? picker.theme.pressed
                           : picker.hovered || picker.isOpen ? picker.theme.hover : "transparent"

        FocusRing {
            shown: picker.visualFocus
            controlRadius: Tokens.radiusControl
        }
    }
    contentItem: Item {
        Label {
            id: label
            x: 6
            width: Math.min(implicitWidth, picker.maximumLabelWidth)
            height: picker.height
            text: picker.panels.models.selectedName
            type: Tokens.control
            color: picker.theme.icon
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        Icon {
            x: label.x + label.width + 4
            y: Math.round((picker.height - height) / 2)
            size: 12
            name: picker.isOpen ? "chevron-up" : "chevron-down"
            color: picker.theme.icon
        }
    }
    ToolTip {
        target: picker
        text: label.truncated ? picker.panels.models.selectedName : ""
    }

    Keys.onReturnPressed: picker.clicked()
    Keys.onEnterPressed: picker.clicked()
    Keys.onDownPressed: picker.clicked()
    Keys.onUpPressed: picker.clicked()

    Accessible.role: role
    Accessible.name: qsTr("Model")
    Accessible.description: value
    Accessible.onPressAction: if (picker.enabled) picker.clicked()
}
