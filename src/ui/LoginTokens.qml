import QtQuick

/// The sign-in window's fixed dark palette. The greys are exact, not rounded to 8 bits.
ThemeTokens {
    background: Qt.rgba(0.07451, 0.07451, 0.07451, 1)
    input: Qt.rgba(0.101961, 0.101961, 0.101961, 1)
    outline: Qt.rgba(0.164706, 0.164706, 0.164706, 1)
    line: outline
    text: "#f0f0f0"
    dimText: Qt.rgba(0.533333, 0.533333, 0.533333, 1)
    placeholder: dimText
    icon: text
    hover: Qt.rgba(1, 1, 1, 0.05)
    pressed: Qt.rgba(1, 1, 1, 0.09)
    secondary: input
    secondaryHover: "#202020"
    secondaryPressed: "#161616"
    secondaryOutline: outline
    secondaryOutlineHover: "#333333"
    secondaryOutlinePressed: outline
    accent: Qt.rgba(0.184314, 0.501961, 0.929412, 1)
    accentText: accent
    accentFill: accent
    accentFillHover: "#4690f1"
    accentFillPressed: "#266fd1"
    textOnAccent: "#06101f"
    dangerText: Qt.rgba(0.877083, 0.298039, 0.235294, 1)
    warnText: "#e6a660"
    ring: "#7db2ff"
    fieldFocus: accent
    selection: Qt.rgba(0x2f / 255, 0x80 / 255, 0xed / 255, 0.45)
    raised: "#1f1f1f"

    /// For the divider's text only: the contrast is too low for other text.
    property color muted: Qt.rgba(0.391667, 0.391667, 0.391667, 1)
}
