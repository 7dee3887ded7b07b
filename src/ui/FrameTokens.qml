import QtQuick

/// Colours of the control bar, strip, bottom panels and menu. Dark in both themes.
ThemeTokens {
    /// Control bar, strip and bottom panels; independent of the opacity setting.
    background: Qt.rgba(0x12 / 255, 0x12 / 255, 0x1c / 255, 0.97)
    surface: "#12121c"
    raised: "#242730"
    input: "#1c1e24"
    line: Qt.rgba(1, 1, 1, 0.09)
    outline: "#6b7183"
    text: "#e8e8ea"
    dimText: "#a2a6b3"
    icon: "#d4d6dd"
    placeholder: "#a2a6b3"
    hover: Qt.rgba(1, 1, 1, 0.07)
    pressed: Qt.rgba(1, 1, 1, 0.13)
    secondary: Qt.rgba(1, 1, 1, 0.077)
    secondaryHover: Qt.rgba(1, 1, 1, 0.13)
    secondaryPressed: Qt.rgba(1, 1, 1, 0.18)
    secondaryOutline: Qt.rgba(1, 1, 1, 0.187)
    secondaryOutlineHover: Qt.rgba(1, 1, 1, 0.234)
    secondaryOutlinePressed: Qt.rgba(1, 1, 1, 0.28)
    accent: "#2f80ed"
    accentText: "#7db2ff"
    accentFill: "#1c6ad0"
    accentFillHover: "#2272da"
    accentFillPressed: "#1559b0"
    dangerText: "#ff8a80"
    warnText: "#e6a660"
    ring: "#7db2ff"
    fieldFocus: "#2f80ed"
    selection: Qt.rgba(0x2f / 255, 0x80 / 255, 0xed / 255, 0.45)
    switchOff: "#4a5061"
    switchOffOutline: "#6b7183"
    switchOn: "#1c6ad0"
    switchOnOutline: "#5a9cf0"
    track: "#4a5061"

    property color opaqueBackground: surface
    /// Fill of the card that blocks sending.
    property color blockingCard: "#2d2026"
    property color windowEdge: Qt.rgba(1, 1, 1, 0.13)
    property color tooltip: "#0b0c11"
    property color tooltipOutline: Qt.rgba(1, 1, 1, 0.15)
    property color tooltipText: "#f0f1f4"
    property color windowClose: "#ec6a5e"
    property color windowMinimize: "#f4bf4f"
    property color windowZoom: "#61c554"
}
