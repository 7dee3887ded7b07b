import QtQuick

/// Plain text in one of the design's text styles. Does not interpret markup.
Text {
    id: label

    property TypeTokens type: Tokens.label
    property ThemeTokens theme: Tokens.frame

    color: theme.text
    textFormat: Text.PlainText
    font.family: Tokens.family
    font.pixelSize: type.size
    font.weight: type.weight
    font.letterSpacing: type.spacing
    lineHeight: type.line
    lineHeightMode: Text.FixedHeight
    verticalAlignment: Text.AlignVCenter
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    // Qt takes static text for focusable, and a heading as well if it was static text for a moment.
    Accessible.focusable: false
}
