import QtQuick

/// One text style: size, line and letter spacing in logical pixels.
QtObject {
    property int size
    property int line
    property int weight: Font.Normal
    property real spacing: 0
}
