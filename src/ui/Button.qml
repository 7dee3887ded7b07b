import QtQuick
import Quellora.Ui
import QtQuick.Controls.Basic as Basic

/// A push button with text and an optional icon. 28 logical pixels high and 32 in dialogs (set
/// `implicitHeight`), more with larger text.
Basic.AbstractButton {
    id: control

    enum Kind { Primary, Secondary, Ghost, Danger }

    property int kind: Button.Secondary
    property ThemeTokens theme: Tokens.frame
    property string iconName
    property string tooltip
    property string shortcutText
    property int cursor: Qt.ArrowCursor
    property alias radius: background.radius
    property TypeTokens type: Tokens.control
    readonly property bool filled: kind === Button.Primary || kind === Button.Danger

    function fill() {
        switch (control.kind) {
        case Button.Primary:
            return control.down ? theme.accentFillPressed
                                : control.hovered ? theme.accentFillHover : theme.accentFill
        case Button.Danger:
            return control.down ? theme.dangerFillPressed
                                : control.hovered ? theme.dangerFillHover : theme.dangerFill
        case Button.Ghost:
            return control.down ? theme.pressed
                                : control.hovered ? theme.hover : Tokens.faded(theme.hover, 0)
        default:
            return control.down ? theme.secondaryPressed
                                : control.hovered ? theme.secondaryHover : theme.secondary
        }
    }
    readonly property color restForeground: kind === Button.Danger ? "#ffffff"
                                          : kind === Button.Primary ? theme.textOnAccent
                                          : theme.text
    // Disabled text on a filled button is blended with the surface behind the button.
    readonly property color foreground: enabled || !filled ? restForeground
                      : Tokens.blend(theme.surface, restForeground, Tokens.disabledOpacity)

    implicitHeight: 28 + Tokens.growth(16)
    implicitWidth: implicitContentWidth + leftPadding + rightPadding
    leftPadding: Tokens.space3
    rightPadding: Tokens.space3
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    opacity: enabled || filled ? 1 : Tokens.disabledOpacity

    contentItem: Item {
        id: content
        readonly property real iconSpace: control.iconName.length > 0
                                         ? Tokens.iconSize + Tokens.space2 : 0

        implicitWidth: iconSpace + label.implicitWidth
        implicitHeight: row.implicitHeight

        Row {
            id: row
            anchors.centerIn: parent
            spacing: Tokens.space2

            Icon {
                anchors.verticalCenter: parent.verticalCenter
                visible: control.iconName.length > 0
                name: control.iconName
                color: control.foreground
            }
            Label {
                id: label
                anchors.verticalCenter: parent.verticalCenter
                width: Math.min(implicitWidth,
                                control.availableWidth - content.iconSpace)
                elide: Text.ElideRight
                text: control.text
                type: control.type
                color: control.foreground
                Accessible.ignored: true
            }
        }
    }

    background: Rectangle {
        id: background
        radius: Tokens.radiusControl
        color: control.enabled || !control.filled ? control.fill()
             : Tokens.faded(control.fill(), Tokens.disabledOpacity)
        border.width: control.kind === Button.Secondary ? 1 : 0
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

    ToolTip {
        target: control
        text: control.tooltip
        shortcutText: control.shortcutText
    }
    HoverHandler { cursorShape: control.cursor }

    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    Accessible.role: Accessible.Button
    Accessible.name: control.text
    Accessible.description: control.tooltip === control.text ? "" : control.tooltip
    Accessible.onPressAction: if (control.enabled) control.clicked()
}
