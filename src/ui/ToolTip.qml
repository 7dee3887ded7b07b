import QtQuick

/// Shows a control's name and shortcut, or why it is blocked, after hovering for half a second or
/// immediately on keyboard focus. Hidden on press. An item in the control's window, because a separate
/// window would not be excluded from captures.
Item {
    id: tip

    /// The described control: an AbstractButton or a Slider.
    required property Item target
    property string text
    property string shortcutText
    property string blockedReason
    readonly property bool hasText: text.length > 0 || blockedReason.length > 0
    /// Whether the bubble is shown.
    readonly property bool shown: bubble.active
    property bool dismissed: false
    property bool delayElapsed: false

    HoverHandler {
        id: hover
        onHoveredChanged: {
            tip.delayElapsed = false
            tip.dismissed = false
        }
    }
    Connections {
        target: tip.target
        function onPressedChanged() {
            if (tip.target.pressed)
                tip.dismissed = true
        }
        function onVisualFocusChanged() { tip.dismissed = false }
    }
    Timer {
        interval: Tokens.tooltipDelay
        running: hover.hovered && tip.hasText && !tip.dismissed
        onTriggered: tip.delayElapsed = true
    }

    anchors.fill: parent
    Accessible.ignored: true

    Loader {
        id: bubble
        active: tip.hasText && !tip.dismissed && tip.visible
                && (tip.delayElapsed || tip.target.visualFocus === true)
        sourceComponent: ToolTipBubble {
            anchorItem: tip.target
            text: tip.text
            shortcutText: tip.shortcutText
            blockedReason: tip.blockedReason
        }
    }
}
