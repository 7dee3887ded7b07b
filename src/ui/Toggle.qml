import QtQuick
import QtQuick.Controls.Basic as Basic

/// A switch with a label in a row 28 px high, more with larger text; the whole row toggles. Bind `checked` to the model and
/// update the model in `onToggled`.
Basic.AbstractButton {
    id: control

    property ThemeTokens theme: Tokens.frame
    property TypeTokens type: Tokens.control
    /// Places the switch at the right end of the row instead of before the label.
    property bool trailing: false
    property string tooltip
    property int cursor: Qt.ArrowCursor
    /// Accessible name if the visible label is elsewhere.
    property string name: text

    /// Read by assistive technology.
    readonly property int role: Accessible.CheckBox
    readonly property real contentOpacity: enabled ? 1 : Tokens.disabledOpacity

    function flip() {
        if (!control.enabled)
            return
        control.toggle()
        control.toggled()
    }

    checkable: true
    implicitHeight: 28 + Tokens.growth(16)
    implicitWidth: 28 + (text.length > 0 ? Tokens.space2 + label.implicitWidth : 0)
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: null
    contentItem: Item {
        Rectangle {
            id: groove
            x: control.trailing ? parent.width - width : 0
            y: Math.round((parent.height - height) / 2)
            width: 28
            height: 16
            radius: 8
            antialiasing: true
            color: Tokens.faded(control.checked ? control.theme.switchOn
                                                : control.theme.switchOff, control.contentOpacity)
            border.width: 1
            border.color: Tokens.faded(control.checked ? control.theme.switchOnOutline
                                                       : control.theme.switchOffOutline,
                                       control.contentOpacity)
            Behavior on color { ColorAnimation { duration: Tokens.hoverTime } }

            Rectangle {
                x: control.checked ? parent.width - width - 2 : 2
                y: 2
                width: 12
                height: 12
                radius: 6
                antialiasing: true
                color: Tokens.blend(control.theme.surface, control.theme.knob,
                                    control.contentOpacity)
                Behavior on x {
                    enabled: !Tokens.reducedMotion
                    NumberAnimation { duration: Tokens.hoverTime }
                }
            }

            FocusRing {
                shown: control.visualFocus
                theme: control.theme
                controlRadius: 8
            }
        }
        Label {
            id: label
            x: control.trailing ? 0 : groove.width + Tokens.space2
            width: parent.width - groove.width - Tokens.space2
            anchors.verticalCenter: parent.verticalCenter
            visible: control.text.length > 0
            text: control.text
            type: control.type
            opacity: control.contentOpacity
            theme: control.theme
            elide: Text.ElideRight
            Accessible.ignored: true
        }
    }

    ToolTip {
        target: control
        text: control.tooltip
    }
    HoverHandler { cursorShape: control.cursor }

    Keys.onReturnPressed: control.flip()
    Keys.onEnterPressed: control.flip()

    Accessible.role: role
    Accessible.name: control.name
    Accessible.description: control.tooltip
    Accessible.checkable: true
    Accessible.checked: control.checked
    Accessible.onToggleAction: control.flip()
    Accessible.onPressAction: control.flip()
}
