import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// The notice below the strip, while something else takes its place there.
Rectangle {
    id: bubble

    required property OverlayModel overlay
    /// The most that the bubble may take.
    required property real maximumWidth
    readonly property int padding: 10

    width: words.x + words.width + padding
    height: 12 + words.height
    radius: Tokens.radiusControl
    color: Tokens.frame.tooltip
    border.width: 1
    border.color: Tokens.frame.tooltipOutline
    antialiasing: true
    // It is announced to screen readers as well; it does not take focus.
    Accessible.role: Accessible.StaticText
    Accessible.name: overlay.notice

    Icon {
        x: bubble.padding
        y: Math.round((bubble.height - height) / 2)
        size: 14
        name: bubble.overlay.isNoticeWarning ? "triangle-alert" : "share"
        color: bubble.overlay.isNoticeWarning ? Tokens.frame.warnText : Tokens.frame.accentText
    }
    Label {
        id: words
        objectName: "noticeBubbleWords"
        x: bubble.padding + 22
        y: Math.round((bubble.height - height) / 2)
        width: Math.min(implicitWidth, bubble.maximumWidth - x - bubble.padding)
        wrapMode: Text.Wrap
        text: bubble.overlay.notice
        color: bubble.overlay.isNoticeWarning ? Tokens.frame.warnText : Tokens.frame.tooltipText
        Accessible.ignored: true
    }
}
