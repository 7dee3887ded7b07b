import QtQuick

/// A text style: font size, line height and letter spacing in logical pixels.
QtObject {
    property int size
    property int line
    property int weight: Font.Normal
    property real spacing: 0
}
