import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// A single-line text field: 32 px high, 40 in the sign-in window (set `implicitHeight`), more with
/// larger text. Focus, also by pointer, is shown as a 2-px inner border.
Basic.TextField {
    id: control

    property ThemeTokens theme: Tokens.frame
    property TypeTokens type: Tokens.body
    /// Accessible name.
    property string name
    property string hint
    property bool failed: false
    property real radius: Tokens.radiusControl
    readonly property bool secret: echoMode !== TextInput.Normal
    readonly property bool focusShown: activeFocus && !readOnly

    implicitHeight: 32 + Tokens.growth(20)
    implicitWidth: 160
    padding: 0
    leftPadding: 10
    rightPadding: 10
    verticalAlignment: TextInput.AlignVCenter
    hoverEnabled: true
    selectByMouse: true
    opacity: enabled ? 1 : Tokens.disabledOpacity
    font.family: Tokens.family
    font.pixelSize: type.size
    font.weight: type.weight
    font.letterSpacing: secret ? type.size * 0.145 : 0
    passwordCharacter: "\u2022"
    color: theme.text
    placeholderTextColor: theme.placeholder
    selectionColor: theme.selection
    selectedTextColor: theme.text

    cursorDelegate: Caret {
        field: control
        color: control.theme.accentText
    }

    background: Rectangle {
        radius: control.radius
        color: control.theme.input
        antialiasing: true
        border.width: control.focusShown || control.failed ? 2 : 1
        border.color: control.failed ? control.theme.dangerText
                    : control.focusShown ? control.theme.fieldFocus
                    : control.hovered && !control.readOnly ? Qt.lighter(control.theme.outline, 1.25)
                    : control.theme.outline
    }

    Accessible.role: Accessible.EditableText
    Accessible.name: control.name
    Accessible.description: control.hint
    Accessible.passwordEdit: control.secret
}
