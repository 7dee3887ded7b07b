import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Overlay
import Quellora.Ui

/// The used share of the allowance, shown above a threshold. Opens the menu when clicked.
Basic.AbstractButton {
    id: badge

    required property OverlayModel overlay
    property bool isBarShown: true
    readonly property bool isRed: overlay.usageTier === OverlayModel.Red
    readonly property color tone: isRed ? Tokens.frame.dangerText : Tokens.frame.warnText
    readonly property color tint: isRed ? Tokens.frame.dangerBar : Tokens.frame.warnText

    objectName: "usageBadge"
    text: qsTr("Usage %1%").arg(badge.overlay.usagePercent)
    implicitHeight: 28 + Tokens.growth(16)
    implicitWidth: 10 + label.implicitWidth + (isBarShown ? 8 + 44 : 0) + 10
    hoverEnabled: true
    focusPolicy: Qt.TabFocus

    background: Rectangle {
        radius: Tokens.radiusControl
        color: Qt.rgba(badge.tint.r, badge.tint.g, badge.tint.b,
                       badge.down ? 0.3 : badge.hovered ? 0.24 : 0.17)

        FocusRing {
            shown: badge.visualFocus
            controlRadius: Tokens.radiusControl
        }
    }
    contentItem: Item {
        Label {
            id: label
            x: 10
            height: parent.height
            text: badge.text
            type: Tokens.control
            color: badge.tone
            Accessible.ignored: true
        }
        UsageBar {
            visible: badge.isBarShown
            x: badge.width - 10 - width
            y: (badge.height - height) / 2
            fraction: badge.overlay.usagePercent / 100
            dangerColor: badge.tone
            warnColor: badge.tone
        }
    }
    ToolTip {
        target: badge
        text: qsTr("Show usage in the menu")
    }

    Keys.onReturnPressed: badge.clicked()
    Keys.onEnterPressed: badge.clicked()
    onClicked: overlay.clickUsage()

    Accessible.role: Accessible.Button
    Accessible.name: badge.text
    Accessible.onPressAction: badge.clicked()
}
