import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The actions with their shortcuts.
Card {
    id: card

    required property SettingsModel settings

    /// Asks to scroll the row into view.
    signal attention(Item row)

    implicitHeight: column.height

    Column {
        id: column
        width: parent.width

        Repeater {
            id: repeater
            model: card.settings.hotkeyRows

            delegate: HotkeyRow {
                id: row
                onAttention: card.attention(row)
                rows: card.settings.hotkeyRows
                theme: card.theme
                width: card.width
                isFirst: index === 0
                isLast: index === repeater.count - 1
                outerRadius: card.radius
            }
        }
    }
}
