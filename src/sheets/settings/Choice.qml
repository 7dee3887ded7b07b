import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// One of several exclusive choices. Tab focuses the chosen one, arrow keys choose another.
Basic.AbstractButton {
    id: choice

    property ThemeTokens theme: Tokens.sheetDark
    required property ChoiceGroup group
    required property int index
    property string name
    property string hint
    readonly property bool chosen: group.current === index
    /// Read by assistive technology.
    readonly property int role: Accessible.RadioButton
    readonly property bool isSwitch: true
    readonly property bool isOn: chosen

    /// Emitted when clicked, even if already chosen, and on arrow navigation.
    signal picked()

    padding: 0
    hoverEnabled: true
    focusPolicy: chosen || group.current < 0 && index === 0 ? Qt.TabFocus : Qt.NoFocus
    onClicked: picked()

    Keys.onReturnPressed: choice.picked()
    Keys.onEnterPressed: choice.picked()
    Keys.onPressed: event => {
        switch (event.key) {
        case Qt.Key_Up:
        case Qt.Key_Left:
            choice.group.moveTo(choice.index - 1)
            break
        case Qt.Key_Down:
        case Qt.Key_Right:
            choice.group.moveTo(choice.index + 1)
            break
        case Qt.Key_Home:
            choice.group.moveTo(0)
            break
        case Qt.Key_End:
            choice.group.moveTo(-1)
            break
        default:
            return
        }
        event.accepted = true
    }

    Accessible.role: role
    Accessible.name: choice.name
    Accessible.description: choice.hint
    Accessible.checkable: true
    Accessible.checked: choice.chosen
    Accessible.onPressAction: choice.picked()
    Accessible.onToggleAction: choice.picked()
}
