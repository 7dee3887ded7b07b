import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// Shows a captured picture before it is sent: Return sends it, Escape drops it. Covers the whole
/// panel and traps Tab; a press beside it does nothing, so that no picture is lost by accident.
FocusScope {
    id: dialog

    required property LookModel look
    property ThemeTokens theme: Tokens.sheetDark
    property bool compact: false
    /// Radius of the window's corners.
    property real cornerRadius: 0
    readonly property bool open: look.isOpen
    /// Had the focus before.
    property Item before: null

    function focusSend() {
        send.forceActiveFocus(Qt.OtherFocusReason)
    }

    onOpenChanged: {
        if (open) {
            before = Window.activeFocusItem
            // Before focusing: hidden or disabled items cannot take the focus.
            visible = true
            enabled = true
            focusSend()
            return
        }
        if (before && dialog.activeFocus)
            before.forceActiveFocus(Qt.OtherFocusReason)
        before = null
        enabled = false
        // Closed before the first frame of the animation.
        if (opacity === 0)
            visible = false
    }
    onOpacityChanged: {
        if (opacity === 0 && !open)
            visible = false
    }

    visible: false
    enabled: false
    opacity: open ? 1 : 0
    z: 200
    Behavior on opacity { NumberAnimation { duration: Tokens.scrimTime } }

    Accessible.role: Accessible.Dialog
    Accessible.name: heading.text
    Accessible.description: look.caption
    Keys.onEscapePressed: dialog.look.drop()

    FocusTrap { scope: dialog }
    Rectangle {
        anchors.fill: parent
        radius: dialog.cornerRadius
        antialiasing: radius > 0
        color: Tokens.sheetDark.scrim
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.AllButtons
        onWheel: wheel => wheel.accepted = true
    }

    Rectangle {
        /// Read by the window: a press inside gives it the keyboard focus.
        readonly property bool takesKeyboard: true
        readonly property int pad: dialog.compact ? Tokens.space3 : Tokens.space5
        readonly property int edge: dialog.compact ? 8 : Tokens.space4
        readonly property real roomX: dialog.width - 2 * edge - 2 * pad
        readonly property real roomY: dialog.height - 2 * edge - 2 * pad - heading.height
                                      - buttons.height - 2 * Tokens.space3
        readonly property size pictureSize: {
            const image = dialog.look.pictureSize
            if (image.width < 1 || image.height < 1)
                return Qt.size(roomX, Math.min(roomY, roomX * 0.625))
            const scale = Math.min(1, roomX / image.width, roomY / image.height)
            return Qt.size(Math.max(1, Math.floor(image.width * scale)),
                           Math.max(1, Math.floor(image.height * scale)))
        }

        id: card
        objectName: "lookCard"
        anchors.centerIn: parent
        width: dialog.width - 2 * edge
        height: 2 * pad + heading.height + pictureSize.height + buttons.height
                + 2 * Tokens.space3
        radius: Tokens.radiusWindow
        color: dialog.theme.raised
        border.width: 1
        border.color: dialog.theme.line
        antialiasing: true

        Label {
            id: heading
            x: card.pad
            y: card.pad
            width: Math.min(implicitWidth, parent.width - 2 * card.pad)
            text: qsTr("Send this picture?")
            type: Tokens.title
            theme: dialog.theme
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        Label {
            objectName: "lookCaption"
            x: heading.x + heading.width + Tokens.space3
            width: Math.max(0, parent.width - x - card.pad)
            height: heading.height
            y: heading.y
            visible: !dialog.compact || dialog.look.pictureSize.width < 1
            horizontalAlignment: Text.AlignRight
            verticalAlignment: Text.AlignVCenter
            text: dialog.look.caption
            type: Tokens.caption
            color: dialog.theme.dimText
            elide: Text.ElideRight
            Accessible.ignored: true
        }
        PreviewImage {
            id: picture
            objectName: "lookPicture"
            x: Math.round((parent.width - width) / 2)
            y: heading.y + heading.height + Tokens.space3
            width: card.pictureSize.width
            height: card.pictureSize.height
            image: dialog.look.picture
            Accessible.role: Accessible.Graphic
            Accessible.name: qsTr("Captured picture")
            Accessible.description: dialog.look.caption
        }
        Rectangle {
            anchors.fill: picture
            anchors.margins: -1
            color: "transparent"
            border.width: 1
            border.color: dialog.theme.line
        }
        Row {
            id: buttons
            anchors.right: parent.right
            anchors.rightMargin: card.pad
            y: picture.y + picture.height + Tokens.space3
            spacing: Tokens.space2

            Button {
                implicitHeight: 32 + Tokens.growth(20)
                leftPadding: Tokens.space4
                rightPadding: Tokens.space4
                text: qsTr("Drop")
                tooltip: qsTr("Keeps nothing of it")
                shortcutText: qsTr("Esc")
                theme: dialog.theme
                onClicked: dialog.look.drop()
            }
            Button {
                implicitHeight: 32 + Tokens.growth(20)
                leftPadding: Tokens.space4
                rightPadding: Tokens.space4
                text: qsTr("Attach")
                tooltip: qsTr("Keeps it for your next message")
                theme: dialog.theme
                onClicked: dialog.look.attach()
            }
            Button {
                id: send
                implicitHeight: 32 + Tokens.growth(20)
                leftPadding: Tokens.space4
                rightPadding: Tokens.space4
                text: qsTr("Send")
                tooltip: qsTr("Sends it with your prompt")
                shortcutText: qsTr("Return")
                kind: Button.Primary
                theme: dialog.theme
                focus: true
                onClicked: dialog.look.send()
            }
        }
    }
}
