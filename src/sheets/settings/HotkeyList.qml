import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// A card with a row for each hotkey action.
Card {
    id: card

    required property SettingsModel settings

    /// Requests scrolling the row into view.
    signal revealRequested(Item row)

    implicitHeight: column.height

    Column {
        id: column
        width: parent.width

        Repeater {
            id: repeater
            model: card.settings.hotkeyRows

            delegate: HotkeyRow {
                id: row
                onRevealRequested: card.revealRequested(row)
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
