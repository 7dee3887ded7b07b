import QtQuick
import Quellora.Ui

/// The bubble of a ToolTip, placed below its control, or above it if it does not fit, and always inside
/// the window.
Rectangle {
    id: bubble

    required property Item anchorItem
    required property string text
    property string shortcutText
    property string blockedReason
    readonly property bool isBlocked: blockedReason.length > 0
    readonly property int gap: 6
    readonly property size windowSize: parent ? Qt.size(parent.width, parent.height)
                                              : Qt.size(0, 0)
    readonly property int margin: 4
    /// Width of what stands beside the words.
    readonly property real extraWidth: isBlocked ? 14 + Tokens.space2
                                                 : keys.visible ? keys.width + Tokens.space2 : 0

    function place() {
        const root = bubble.parent
        if (!root || !bubble.anchorItem)
            return
        const origin = bubble.anchorItem.mapToItem(root, 0, 0)
        const centredX = origin.x + (bubble.anchorItem.width - bubble.width) / 2
        bubble.x = Math.round(Math.max(margin, Math.min(centredX, root.width - width - margin)))
        const below = origin.y + bubble.anchorItem.height + gap
        const fits = below + height + margin <= root.height
        bubble.y = Math.round(fits ? below : Math.max(margin, origin.y - height - gap))
    }

    parent: bubble.anchorItem.Window.window ? bubble.anchorItem.Window.window.contentItem : null
    onParentChanged: place()
    onWindowSizeChanged: place()
    onWidthChanged: place()
    onHeightChanged: place()
    Component.onCompleted: place()

    z: 10000
    width: row.width + 2 * 9
    height: 12 + Math.max(16, words.height)
    radius: Tokens.radiusControl
    color: Tokens.frame.tooltip
    border.width: 1
    border.color: Tokens.frame.tooltipOutline
    antialiasing: true
    Accessible.ignored: true

    Row {
        id: row
        anchors.centerIn: parent
        spacing: Tokens.space2

        Icon {
            anchors.verticalCenter: parent.verticalCenter
            visible: bubble.isBlocked
            name: "lock"
            size: 14
            color: Tokens.frame.dangerText
        }
        Label {
            id: words
            anchors.verticalCenter: parent.verticalCenter
            // Long or large text wraps inside the window.
            width: Math.min(implicitWidth, Math.max(40, bubble.windowSize.width - 2 * bubble.margin
                                                        - 2 * 9 - bubble.extraWidth))
            wrapMode: Text.Wrap
            text: bubble.isBlocked ? bubble.blockedReason : bubble.text
            color: bubble.isBlocked ? Tokens.frame.dangerText : Tokens.frame.tooltipText
            Accessible.ignored: true
        }
        Kbd {
            id: keys
            anchors.verticalCenter: parent.verticalCenter
            visible: text.length > 0 && !bubble.isBlocked
            text: bubble.shortcutText
        }
    }
}
