import QtQuick

/// A focus ring around the parent control, shown for keyboard focus only.
Rectangle {
    id: ring

    /// Whether the control has visual focus.
    required property bool shown
    property ThemeTokens theme: Tokens.frame
    property real controlRadius: Tokens.radiusControl
    readonly property int reach: Tokens.ringWidth + Tokens.ringOffset

    anchors.fill: parent
    anchors.margins: -reach
    visible: shown
    radius: controlRadius + reach
    color: "transparent"
    border.width: Tokens.ringWidth
    border.color: theme.ring
    antialiasing: true
}
