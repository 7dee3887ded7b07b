import QtQuick

/// A raised rectangle with an optional coloured 3-px bar along its left edge.
Rectangle {
    id: card

    property ThemeTokens theme: Tokens.frame
    /// Colour of the bar; transparent for none.
    property color bar: "transparent"
    default property alias content: inner.data

    radius: Tokens.radiusCard
    color: theme.raised
    border.width: 1
    border.color: theme.line
    antialiasing: true

    // A full-size shape clipped to 3 px, so that the bar follows the card's round corners.
    Item {
        width: 3
        height: parent.height
        clip: true
        visible: card.bar.a > 0

        Rectangle {
            width: card.width
            height: card.height
            radius: card.radius
            color: card.bar
            antialiasing: true
        }
    }
    Item {
        id: inner
        anchors.fill: parent
    }
}
