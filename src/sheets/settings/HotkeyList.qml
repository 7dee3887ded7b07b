import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The actions with their shortcuts.
Card {
    id: card

    required property SettingsModel settings

    /// A row has something to show that may lie out of view.
    signal attention(Item row)

    implicitHeight: column.height

    Column {
        id: column
        width: parent.width

        Repeater {
            id: rows
            model: card.settings.hotkeyRows

            delegate: HotkeyRow {
                id: row
                onAttention: card.attention(row)
                rows: card.settings.hotkeyRows
                theme: card.theme
                width: card.width
                isFirst: index === 0
                isLast: index === 6
                outerRadius: card.radius
            }
        }
    }
}
