import QtQuick
import Quellora.Ui

/// A switch with a title and a hint; the whole row toggles.
Toggle {
    id: row

    property string hint
    /// The stored value. Toggling only emits toggledByUser(); the owner updates the value.
    property bool on: false
    property bool isFirst: false
    property bool isLast: false
    property real outerRadius: 0

    signal toggledByUser()

    theme: Tokens.sheetDark
    trailing: true
    checked: on
    // Aligns the switch with the title.
    leftPadding: Tokens.space3
    rightPadding: Tokens.space3
    topPadding: 5
    bottomPadding: height - topPadding - 28 - Tokens.growth(20)
    implicitHeight: hintLabel.y + hintLabel.height + 11
    onToggled: {
        toggledByUser()
        checked = Qt.binding(() => row.on)
    }
    Accessible.description: hint

    background: RowBackground {
        control: row
        theme: row.theme
        showsRing: false
        isFirst: row.isFirst
        isLast: row.isLast
        outerRadius: row.outerRadius
    }

    Label {
        id: title
        x: Tokens.space3
        y: 9
        width: row.width - 28 - 3 * Tokens.space3
        text: row.name
        type: Tokens.body
        font.weight: Font.Medium
        theme: row.theme
        wrapMode: Text.Wrap
        Accessible.ignored: true
    }
    Label {
        id: hintLabel
        x: Tokens.space3
        y: title.y + title.height + 2
        width: title.width
        text: row.hint
        type: Tokens.hint
        color: row.theme.dimText
        wrapMode: Text.Wrap
        Accessible.ignored: true
    }
}
