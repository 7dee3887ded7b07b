import QtQuick

/// Colours of sheets and dialogs, which follow the theme.
ThemeTokens {
    id: sheet

    required property bool dark

    background: dark ? "#1c1e24" : "#f7f5f0"
    raised: dark ? "#242730" : "#eeece5"
    input: dark ? "#2b2e38" : "#fffdf9"
    line: dark ? "#353946" : "#d5d1c5"
    outline: dark ? "#747a8c" : "#7d7969"
    text: dark ? "#e8e8ea" : "#1c1e24"
    dimText: dark ? "#a2a6b3" : "#5c5f6b"
    icon: dark ? "#d4d6dd" : "#3a3d47"
    placeholder: dimText
    hover: sheet.tint(0.05)
    pressed: sheet.tint(0.11)
    secondary: sheet.tint(0)
    secondaryHover: hover
    secondaryPressed: pressed
    secondaryOutline: outline
    secondaryOutlineHover: outline
    secondaryOutlinePressed: outline
    accent: dark ? "#2f80ed" : "#1c6ad0"
    accentText: dark ? "#7db2ff" : "#1257ae"
    accentFill: "#1c6ad0"
    accentFillHover: "#2272da"
    accentFillPressed: "#1559b0"
    dangerText: dark ? "#ff8a80" : "#c62828"
    warnText: dark ? "#e6a660" : "#8a5a00"
    ring: dark ? "#7db2ff" : "#1c6ad0"
    fieldFocus: ring
    selection: dark ? Qt.rgba(0x2f / 255, 0x80 / 255, 0xed / 255, 0.45)
                    : Qt.rgba(0x1c / 255, 0x6a / 255, 0xd0 / 255, 0.30)
    switchOff: dark ? "#4a5061" : "#8a8676"
    switchOffOutline: dark ? "#747a8c" : "#7d7969"
    switchOn: dark ? "#2f80ed" : "#1c6ad0"
    switchOnOutline: dark ? "#5a9cf0" : "#1559b0"
    track: dark ? "#4a5061" : "#c9c5b8"

    property color aiKind: accentText
    property color noteKind: dark ? "#e6c760" : "#8a5a00"
    /// Fill of a selected row.
    property color selectedRow: dark ? Qt.rgba(0x2f / 255, 0x80 / 255, 0xed / 255, 0.16)
                                     : Qt.rgba(0x1c / 255, 0x6a / 255, 0xd0 / 255, 0.12)
    property color segmentOn: dark ? "#3a3f4d" : "#fffdf9"
    property color scrim: Qt.rgba(0x06 / 255, 0x07 / 255, 0x0c / 255, 0.50)

    function tint(alpha) {
        return sheet.dark ? Qt.rgba(1, 1, 1, alpha)
                          : Qt.rgba(0x1c / 255, 0x1e / 255, 0x24 / 255, alpha)
    }
}
