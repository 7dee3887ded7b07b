import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// The persistent scrollbar beside the answer. It forwards input to its model; the page scrolls.
Rectangle {
    id: bar

    required property ResponseScrollbarModel scrollbar

    color: scrollbar.backgroundColor
    onWidthChanged: bar.updateSize()
    onHeightChanged: bar.updateSize()
    Component.onCompleted: bar.updateSize()

    function updateSize() {
        if (bar.scrollbar)
            bar.scrollbar.setSize(width, height)
    }

    // A hidden panel does not receive the release event of a drag, so end it here.
    Connections {
        target: bar.Window.window
        function onVisibleChanged() { bar.scrollbar.mouseUp() }
    }
    MouseArea {
        objectName: "scrollbarArea"
        anchors.fill: parent
        acceptedButtons: Qt.LeftButton
        cursorShape: Qt.ArrowCursor
        preventStealing: true
        onPressed: mouse => bar.scrollbar.mouseDown(Qt.point(mouse.x, mouse.y))
        onPositionChanged: mouse => bar.scrollbar.mouseDragged(Qt.point(mouse.x, mouse.y))
        onReleased: bar.scrollbar.mouseUp()
        onCanceled: bar.scrollbar.mouseUp()
        onWheel: wheel => {
            // Only trackpads report reliable pixel distances; wheels report notches.
            const isPrecise = wheel.pixelDelta.y !== 0
                              && wheel.device.type === PointerDevice.TouchPad
            if (isPrecise)
                bar.scrollbar.scrollPrecisely(wheel.pixelDelta.y)
            else if (wheel.angleDelta.y !== 0)
                bar.scrollbar.scrollByLines(wheel.angleDelta.y / 120)
        }
    }
    Rectangle {
        id: track
        x: bar.scrollbar.trackRect.x
        y: bar.scrollbar.trackRect.y
        width: bar.scrollbar.trackRect.width
        height: bar.scrollbar.trackRect.height
        radius: 3
        color: bar.scrollbar.trackColor
    }
    ScrollArrow {
        objectName: "scrollUp"
        scrollbar: bar.scrollbar
        name: qsTr("Scroll up")
        iconName: "chevron-up"
        frame: bar.scrollbar.upButtonRect
        onClicked: bar.scrollbar.pressUp()
    }
    Rectangle {
        id: thumb
        objectName: "scrollThumb"
        // Read by the accessibility bridge, in percent.
        readonly property int value: Math.round(bar.scrollbar.fraction * 100)
        readonly property int minimumValue: 0
        readonly property int maximumValue: 100

        x: bar.scrollbar.thumbRect.x
        y: bar.scrollbar.thumbRect.y
        width: bar.scrollbar.thumbRect.width
        height: bar.scrollbar.thumbRect.height
        radius: 3
        color: bar.scrollbar.thumbColor
        activeFocusOnTab: bar.scrollbar.isEnabled
        Keys.onPressed: event => event.accepted = bar.scrollbar.handleKey(event.key)

        Accessible.role: Accessible.ScrollBar
        Accessible.name: qsTr("Response scroll position")
        Accessible.focusable: activeFocusOnTab
        Accessible.description: qsTr("%1%").arg(value)
        Accessible.onIncreaseAction: bar.scrollbar.pressDown()
        Accessible.onDecreaseAction: bar.scrollbar.pressUp()

        FocusRing {
            shown: thumb.activeFocus
            controlRadius: 3
        }
    }
    ScrollArrow {
        objectName: "scrollDown"
        scrollbar: bar.scrollbar
        name: qsTr("Scroll down")
        iconName: "chevron-down"
        frame: bar.scrollbar.downButtonRect
        onClicked: bar.scrollbar.pressDown()
    }
}
