import QtQuick

/// One text style: size and line in logical pixels.
QtObject {
    property int size
    property int line
    property int weight: Font.Normal
}
