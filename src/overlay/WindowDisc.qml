import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Overlay
import Quellora.Ui

/// A round window button. Its icon is shown while the pointer is over the button group or the
/// button has keyboard focus.
Basic.AbstractButton {
    id: disc

    property string name
    property string iconName
    property color fill
    property bool iconShown: false

    implicitWidth: 24
    implicitHeight: 24
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: Item {
        Rectangle {
            anchors.centerIn: parent
            width: 12
            height: 12
            radius: 6
            antialiasing: true
            color: disc.down ? Qt.darker(disc.fill, 1.25) : disc.fill

            FocusRing {
                shown: disc.visualFocus
                controlRadius: 6
            }
        }
    }
    contentItem: Item {
        Icon {
            anchors.centerIn: parent
            visible: disc.iconShown || disc.visualFocus
            name: disc.iconName
            size: 8
            strokeWidth: 3.5
            color: Qt.rgba(0, 0, 0, 0.62)
        }
    }
    ToolTip {
        target: disc
        text: disc.name
    }

    Keys.onReturnPressed: disc.clicked()
    Keys.onEnterPressed: disc.clicked()

    Accessible.role: Accessible.Button
    Accessible.name: disc.name
    Accessible.onPressAction: disc.clicked()
}
