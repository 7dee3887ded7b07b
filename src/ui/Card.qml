import QtQuick

/// A raised rectangle; with a bar colour, a 3-px bar along its left edge.
Rectangle {
    id: card

    property ThemeTokens theme: Tokens.frame
    /// Transparent for a plain card.
    property color bar: "transparent"
    default property alias content: inner.data

    radius: Tokens.radiusCard
    color: theme.raised
    border.width: 1
    border.color: theme.line
    antialiasing: true

    // The bar keeps the card's round corners: a full-size shape of which only 3 px show.
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
