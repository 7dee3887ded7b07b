import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The program's version and the licences of what others made of it.
Column {
    id: about

    required property SettingsModel settings
    property ThemeTokens theme: Tokens.sheetDark

    spacing: Tokens.space2

    Label {
        objectName: "programVersion"
        width: parent.width
        text: about.settings.programVersion
        type: Tokens.body
        theme: about.theme
        elide: Text.ElideRight
    }
    Card {
        id: card
        width: parent.width
        height: rows.height
        theme: about.theme

        Column {
            id: rows
            width: parent.width

            Repeater {
                id: licenses
                model: about.settings.licenses

                delegate: LicenseRow {
                    width: rows.width
                    height: implicitHeight
                    theme: about.theme
                    outerRadius: card.radius
                    isFirst: index === 0
                    isLast: index === licenses.count - 1
                }
            }
        }
    }
}
