import QtQuick
import Quellora.Ui

/// A choice as a row of a card, with radio mark, name and hint.
Choice {
    id: row

    /// The card that contains the row.
    required property Card card
    /// Number of rows in the card.
    required property int count
    /// Minimum width of the name, so that the hints of short names are aligned.
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

    // The radio mark: a ring, thick if chosen.
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
        id: nameLabel
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
        x: nameLabel.x + nameLabel.width + Tokens.space3
        width: Math.max(0, row.width - x - Tokens.space3)
        height: parent.height
        text: row.hint
        color: row.theme.dimText
        elide: Text.ElideRight
        Accessible.ignored: true
    }
}
