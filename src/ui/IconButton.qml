import QtQuick
import Quellora.Ui
import QtQuick.Controls.Basic as Basic

/// A button that shows an icon and, with a `label`, a word beside it. `name` is its accessible name
/// and its tooltip.
///
/// A disabled button ignores presses. A blocked one shows a lock but accepts focus and presses, so that
/// the action can explain the reason.
Basic.AbstractButton {
    id: control

    enum Look { Plain, Boxed, Filled }

    property string name
    property string label
    property string iconName
    property int iconSize: Tokens.iconSize
    property real iconStroke: Tokens.iconStroke
    property real iconFillOpacity: 0
    property int look: IconButton.Plain
    property ThemeTokens theme: Tokens.frame
    property string shortcutText
    /// Why it is disabled; replaces the name in the tooltip.
    property string disabledReason
    property bool active: false
    property bool busy: false
    property bool blocked: false
    property string blockedReason
    property color badgeSurface: theme.surface
    property int cursor: Qt.ArrowCursor
    /// Accessible role.
    property int role: Accessible.Button
    /// Accessible switch state: checkable and checked.
    property bool isSwitch: false
    property bool isOn: false
    property color foreground: control.defaultForeground()

    readonly property bool boxed: look !== IconButton.Plain

    function defaultForeground() {
        if (boxed && (!enabled || blocked))
            return theme.disabledGlyph
        if (boxed)
            return theme.textOnAccent
        if (active)
            return theme.accentText
        return down || hovered ? theme.text : theme.icon
    }
    function fill() {
        if (boxed && !enabled || blocked && look === IconButton.Filled)
            return down || hovered && enabled ? theme.pressed : theme.hover
        if (boxed && (busy || blocked))
            return down || hovered && blocked ? theme.hover : Tokens.faded(theme.secondary, 0.56)
        if (look === IconButton.Filled)
            return down ? theme.accentFillPressed : hovered ? theme.accentFillHover
                                                            : theme.accentFill
        if (look === IconButton.Boxed)
            return down ? theme.secondaryPressed : hovered ? theme.secondaryHover : theme.secondary
        if (active && !down)
            return Tokens.faded(theme.accent, hovered ? 0.34 : 0.26)
        return down ? theme.pressed : hovered ? theme.hover
                                              : Tokens.faded(theme.hover, 0)
    }

    implicitWidth: boxed ? 36 : 28 + (words.visible ? words.implicitWidth + Tokens.space2 : 0)
    implicitHeight: 28
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    opacity: enabled || boxed ? 1 : Tokens.disabledOpacity

    contentItem: Item {
        Icon {
            x: words.visible ? 6 : Math.round((parent.width - width) / 2)
            y: Math.round((parent.height - height) / 2)
            visible: !control.busy
            name: control.iconName
            size: control.iconSize
            strokeWidth: control.iconStroke
            fillOpacity: control.iconFillOpacity
            color: control.foreground
        }
        Label {
            id: words
            x: 6 + control.iconSize + 6
            height: parent.height
            visible: control.label.length > 0
            text: control.label
            type: Tokens.control
            color: control.foreground
            Accessible.ignored: true
        }
        Spinner {
            anchors.centerIn: parent
            visible: control.busy
            theme: control.theme
        }
    }

    background: Rectangle {
        id: background
        radius: Tokens.radiusControl
        color: control.fill()
        border.width: control.look === IconButton.Boxed && control.enabled && !control.busy
                      && !control.blocked ? 1 : 0
        border.color: control.down ? control.theme.secondaryOutlinePressed
                    : control.hovered ? control.theme.secondaryOutlineHover
                    : control.theme.secondaryOutline
        antialiasing: true

        Behavior on color {
            enabled: !control.down
            ColorAnimation { duration: Tokens.hoverTime }
        }

        FocusRing {
            shown: control.visualFocus
            theme: control.theme
            controlRadius: background.radius
        }
    }

    Rectangle {
        x: control.width - 12
        y: control.height - 12
        width: 16
        height: 16
        radius: 8
        visible: control.blocked
        color: control.badgeSurface
        antialiasing: true

        Icon {
            anchors.centerIn: parent
            name: "lock"
            size: 10
            strokeWidth: 2.5
            color: control.theme.dangerText
        }
    }

    ToolTip {
        target: control
        text: control.enabled || control.disabledReason.length === 0 ? control.name
                                                                     : control.disabledReason
        shortcutText: control.enabled ? control.shortcutText : ""
        blockedReason: control.blocked ? control.blockedReason : ""
    }
    HoverHandler { cursorShape: control.cursor }

    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    Accessible.role: control.role
    Accessible.name: control.name
    Accessible.description: control.blocked ? control.blockedReason
                          : control.enabled ? "" : control.disabledReason
    Accessible.onPressAction: if (control.enabled) control.clicked()
}
