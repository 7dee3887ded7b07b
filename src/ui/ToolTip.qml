import QtQuick

/// A control's name, its shortcut, or why it is blocked. Shown after half a second of hovering or at once
/// on keyboard focus, hidden on press. It is an item in the control's window, because a separate window
/// would not be excluded from captures.
Item {
    id: tip

    /// The described control: an AbstractButton or a Slider.
    required property Item target
    property string text
    property string shortcutText
    property string blockedReason
    readonly property bool worthShowing: text.length > 0 || blockedReason.length > 0
    /// Whether the bubble is shown.
    readonly property bool shown: bubble.active
    property bool dismissed: false
    property bool rested: false

    HoverHandler {
        id: hover
        onHoveredChanged: {
            tip.rested = false
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
        running: hover.hovered && tip.worthShowing && !tip.dismissed
        onTriggered: tip.rested = true
    }

    anchors.fill: parent
    Accessible.ignored: true

    Loader {
        id: bubble
        active: tip.worthShowing && !tip.dismissed && tip.visible
                && (tip.rested || tip.target.visualFocus === true)
        sourceComponent: ToolTipBubble {
            anchorItem: tip.target
            text: tip.text
            shortcutText: tip.shortcutText
            blockedReason: tip.blockedReason
        }
    }
}
