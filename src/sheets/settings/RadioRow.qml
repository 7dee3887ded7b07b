import QtQuick
import Quellora.Ui

/// One of several exclusive choices as a row of a card: mark, name, hint.
Choice {
    id: row

    /// The card that contains the rows.
    required property Card card
    /// Number of rows in the card.
    required property int count
    /// Minimum x of the hint, so that the hints of short names are aligned.
    property real minimumNameWidth: 0

    theme: card.theme
    width: card.width
    height: 44

    background: RowBackground {
        control: row
        theme: row.theme
        selected: row.chosen
        isFirst: row.index === 0
        isLast: row.index === row.count - 1
        outerRadius: row.card.radius
    }

    // The radio mark: a ring, filled with a hole if chosen.
    Rectangle {
        x: Tokens.space3
        anchors.verticalCenter: parent.verticalCenter
        width: 16
        height: 16
        radius: 8
        antialiasing: true
        color: "transparent"
        border.width: row.chosen ? 5 : 1.5
        border.color: row.chosen ? row.theme.accent : row.theme.outline
    }
    Label {
        id: words
        x: 40
        width: Math.min(Math.max(row.minimumNameWidth, implicitWidth),
                        row.width - x - Tokens.space3)
        height: parent.height
        text: row.name
        type: Tokens.body
        font.weight: Font.Medium
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Label {
        x: words.x + words.width + Tokens.space3
        width: Math.max(0, row.width - x - Tokens.space3)
        height: parent.height
        text: row.hint
        color: row.theme.dimText
        elide: Text.ElideRight
        Accessible.ignored: true
    }
}
