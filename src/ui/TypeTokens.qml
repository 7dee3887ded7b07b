import QtQuick

/// A text style: font size, line height and letter spacing in logical pixels.
QtObject {
    /// Values at the normal text size.
    property int designSize
    property int designLine
    property real designSpacing: 0
    property int weight: Font.Normal
    /// Factor of the text size; bind it to Tokens.textScale.
    property real scale: 1

    readonly property int size: Math.max(1, Math.round(designSize * scale))
    readonly property int line: Math.max(1, Math.round(designLine * scale))
    readonly property real spacing: designSpacing * scale
}
