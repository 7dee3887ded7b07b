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
    /// Whether the hint stands below the name: large text does not fit beside it.
    readonly property bool isStacked: Tokens.textScale > 1 && hint.length > 0
                                      && nameLabel.x + nameLabel.implicitWidth + hintLabel.implicitWidth
                                         + 2 * Tokens.space3 > width

    theme: card.theme
    width: card.width
    height: 44 + Tokens.growth(20) + (isStacked ? hintLabel.type.line : 0)

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
        height: parent.height - (row.isStacked ? hintLabel.type.line : 0)
        text: row.name
        type: Tokens.body
        font.weight: Font.Medium
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Label {
        id: hintLabel
        x: row.isStacked ? nameLabel.x : nameLabel.x + nameLabel.width + Tokens.space3
        y: row.isStacked ? nameLabel.height - 8 : 0
        width: Math.max(0, row.width - x - Tokens.space3)
        height: row.isStacked ? type.line : parent.height
        text: row.hint
        color: row.theme.dimText
        elide: Text.ElideRight
        Accessible.ignored: true
    }
}
