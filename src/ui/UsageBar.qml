import QtQuick

/// A bar showing the used fraction of the allowance: 4 px high in the strip, 6 in the menu. Always
/// combine it with text.
Item {
    id: bar

    /// Used fraction; may exceed 1.
    property real fraction: 0
    property bool exceeded: false
    property ThemeTokens theme: Tokens.frame
    property color track: theme.track
    property color normalColor: theme.accent
    property color warnColor: theme.warnText
    property color dangerColor: theme.dangerBar
    readonly property color fill: exceeded || fraction >= 0.95 ? dangerColor
                                : fraction >= 0.8 ? warnColor : normalColor
    readonly property real shownFraction: exceeded ? 1 : Math.max(0, Math.min(1, fraction))

    implicitWidth: 44
    implicitHeight: 4
    Accessible.role: Accessible.ProgressBar
    Accessible.ignored: true

    Rectangle {
        id: halo
        anchors.fill: parent
        anchors.margins: -3
        visible: bar.exceeded
        radius: height / 2
        color: Tokens.faded(bar.dangerColor, 0.35)
        antialiasing: true

        SequentialAnimation on opacity {
            running: bar.exceeded && bar.visible && !Tokens.reducedMotion
            loops: Animation.Infinite
            onStopped: halo.opacity = 1
            NumberAnimation { to: 0.45; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
            NumberAnimation { to: 1; duration: Tokens.pulseTime / 2; easing.type: Easing.InOutSine }
        }
    }
    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: bar.track
        antialiasing: true
    }
    Rectangle {
        width: Math.round(parent.width * bar.shownFraction)
        height: parent.height
        radius: height / 2
        color: bar.fill
        antialiasing: true
    }
}
