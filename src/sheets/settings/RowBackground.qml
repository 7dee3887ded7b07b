import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Ui

/// Background, focus ring and separator of a row in a card. The first and last rows follow the card's
/// rounded corners.
Item {
    id: fill

    required property Basic.AbstractButton control
    required property ThemeTokens theme
    property bool selected: false
    property bool showsRing: true
    property bool isFirst: false
    property bool isLast: false
    property real outerRadius: 0

    Item {
        anchors.fill: parent
        anchors.leftMargin: 1
        anchors.rightMargin: 1
        anchors.topMargin: fill.isFirst ? 1 : 0
        anchors.bottomMargin: 1
        clip: fill.isFirst !== fill.isLast

        Rectangle {
            // Extended at inner edges, so that the rounded corners are clipped there.
            y: fill.isFirst ? 0 : -radius
            width: parent.width
            height: parent.height + (fill.isFirst ? 0 : radius) + (fill.isLast ? 0 : radius)
            radius: fill.isFirst || fill.isLast ? fill.outerRadius - 1 : 0
            antialiasing: radius > 0
            color: fill.control.down ? fill.theme.pressed
                 : fill.selected ? fill.theme.selectedRow
                 : fill.control.hovered ? fill.theme.hover : Tokens.faded(fill.theme.hover, 0)

            Behavior on color {
                enabled: !fill.control.down
                ColorAnimation { duration: Tokens.hoverTime }
            }
        }
    }
    Hairline {
        visible: !fill.isLast
        y: parent.height - 1
        width: parent.width
        color: fill.theme.line
    }
    FocusRing {
        anchors.margins: 2
        shown: fill.showsRing && fill.control.visualFocus
        theme: fill.theme
        radius: Tokens.radiusControl
    }
}
