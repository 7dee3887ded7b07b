import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// The bar at the top: window buttons, opacity slider, menu button. Dragging its empty area moves
/// the panel.
Item {
    id: bar

    required property OverlayModel overlay
    readonly property alias menuButton: menuButton

    implicitHeight: 34

    Row {
        x: 6
        y: 5
        HoverHandler { id: windowButtonsHover }

        WindowDisc {
            objectName: "closeButton"
            name: qsTr("Close")
            iconName: "x"
            fill: Tokens.frame.windowClose
            iconShown: windowButtonsHover.hovered
            onClicked: bar.overlay.close()
        }
        WindowDisc {
            objectName: "minimizeButton"
            name: qsTr("Minimize")
            iconName: "minus"
            fill: Tokens.frame.windowMinimize
            iconShown: windowButtonsHover.hovered
            onClicked: bar.overlay.minimize()
        }
        WindowDisc {
            objectName: "zoomButton"
            name: qsTr("Zoom")
            iconName: "maximize-2"
            fill: Tokens.frame.windowZoom
            iconShown: windowButtonsHover.hovered
            onClicked: bar.overlay.zoom()
        }
    }
    Icon {
        x: bar.width - 198
        y: 10
        size: 14
        name: "blend"
        color: Tokens.frame.dimText
    }
    Slider {
        objectName: "opacitySlider"
        x: bar.width - 176
        y: 7
        width: 140
        height: 20
        name: qsTr("Opacity")
        tooltip: qsTr("Opacity %1%").arg(Math.round(bar.overlay.currentAlpha * 100))
        modelValue: bar.overlay.currentAlpha
        onEdited: newValue => bar.overlay.moveSlider(newValue)
    }
    IconButton {
        id: menuButton
        objectName: "menuButton"
        // Read by the accessibility bridge.
        readonly property bool expandable: true
        readonly property bool expanded: bar.overlay.isMenuOpen

        x: bar.width - 28
        y: 3
        topInset: 2
        bottomInset: 2
        leftInset: 2
        rightInset: 2
        iconName: "menu"
        name: qsTr("Menu")
        role: Accessible.ButtonMenu
        active: bar.overlay.isMenuOpen
        onClicked: bar.overlay.toggleMenu()

        Accessible.description: bar.overlay.isMenuOpen ? qsTr("expanded") : qsTr("collapsed")
    }
    Hairline {
        y: bar.height - 1
        width: bar.width
        color: Tokens.frame.line
    }
}
