import QtQuick
import QtQuick.Controls.Basic as Basic

/// A horizontal slider from 0 to 1. The arrow keys step by 1 %, with Shift by 10 %.
///
/// Bind `modelValue`; `edited` reports the user's changes by pointer, keys or assistive technology.
Basic.Slider {
    id: control

    property ThemeTokens theme: Tokens.frame
    property string name
    property string tooltip
    property real modelValue: 0

    signal edited(real newValue)

    function step(delta) {
        control.value = Math.min(control.to, Math.max(control.from, control.value + delta))
    }

    onModelValueChanged: control.value = control.modelValue
    onValueChanged: {
        if (Math.abs(control.value - control.modelValue) > 0.0005)
            control.edited(control.value)
    }
    Component.onCompleted: control.value = control.modelValue

    from: 0
    to: 1
    stepSize: 0.01
    snapMode: Basic.Slider.SnapAlways
    padding: 0
    implicitWidth: 140
    implicitHeight: 20
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    opacity: enabled ? 1 : Tokens.disabledOpacity

    background: Item {
        Rectangle {
            id: track
            y: Math.round((parent.height - height) / 2)
            width: parent.width
            height: 4
            radius: 2
            color: control.theme.track

            Rectangle {
                width: control.visualPosition * (parent.width - 14) + 7
                height: parent.height
                radius: 2
                color: control.theme.accent
            }
        }
        FocusRing {
            shown: control.visualFocus
            theme: control.theme
            controlRadius: 8
        }
    }
    handle: Rectangle {
        x: control.visualPosition * (control.availableWidth - width)
        y: Math.round((control.height - height) / 2)
        implicitWidth: 14
        implicitHeight: 14
        radius: 7
        antialiasing: true
        color: control.theme.knob
    }

    ToolTip {
        target: control
        text: control.tooltip
    }

    Keys.onPressed: event => {
        const size = event.modifiers & Qt.ShiftModifier ? 0.1 : 0.01
        if (event.key === Qt.Key_Left || event.key === Qt.Key_Down)
            control.step(-size)
        else if (event.key === Qt.Key_Right || event.key === Qt.Key_Up)
            control.step(size)
        else
            return
        event.accepted = true
    }

    Accessible.role: Accessible.Slider
    Accessible.name: control.name
    Accessible.description: control.tooltip
    Accessible.onIncreaseAction: control.step(0.01)
    Accessible.onDecreaseAction: control.step(-0.01)
}
