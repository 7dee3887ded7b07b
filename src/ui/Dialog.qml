import QtQuick
import Quellora.Ui

/// A modal confirmation of an irreversible action: a card 320 px wide, more with larger text, over a scrim inside the window.
/// Cancel has the initial focus; Escape and a press outside the card cancel as well.
FocusScope {
    id: dialog

    property ThemeTokens theme: Tokens.sheetDark
    property string title
    property string text
    /// The part of `text` to elide if the text is too long.
    property string shortened
    property string confirmText
    property string cancelText: "Cancel"
    property bool open: false
    /// Radius of the window's lower corners.
    property real cornerRadius: 0

    readonly property TypeTokens buttonType: TypeTokens {
        scale: Tokens.textScale
        designSize: 13
        designLine: 20
        weight: Font.Medium
    }

    signal confirmed()
    signal cancelled()

    onOpenChanged: {
        if (open)
            cancel.forceActiveFocus(Qt.TabFocusReason)
    }
    Component.onCompleted: {
        if (open)
            cancel.forceActiveFocus(Qt.TabFocusReason)
    }

    anchors.fill: parent
    visible: open || opacity > 0
    enabled: open
    opacity: open ? 1 : 0
    z: 100
    Behavior on opacity { NumberAnimation { duration: Tokens.scrimTime } }

    Accessible.role: Accessible.Dialog
    Accessible.name: dialog.title
    Accessible.description: dialog.text
    Keys.onEscapePressed: dialog.cancelled()

    FocusTrap { scope: dialog }
    Item {
        anchors.fill: parent
        clip: dialog.cornerRadius > 0

        Rectangle {
            y: -radius
            width: parent.width
            height: parent.height + radius
            radius: dialog.cornerRadius
            antialiasing: radius > 0
            color: Tokens.sheetDark.scrim
        }
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        onClicked: dialog.cancelled()
        onWheel: wheel => wheel.accepted = true
    }

    Rectangle {
        /// Read by the window: a press inside gives it the keyboard focus.
        readonly property bool takesKeyboard: true

        objectName: "dialogCard"
        anchors.centerIn: parent
        width: Math.min(Tokens.grown(320), dialog.width - 32)
        height: column.height + 2 * Tokens.space5
        radius: Tokens.radiusWindow
        color: dialog.theme.raised
        border.width: 1
        border.color: dialog.theme.line
        antialiasing: true

        MouseArea { anchors.fill: parent }

        Column {
            id: column
            x: Tokens.space5
            y: Tokens.space5
            width: parent.width - 2 * x

            Label {
                id: heading
                width: parent.width
                text: dialog.title
                type: Tokens.title
                theme: dialog.theme
                wrapMode: Text.Wrap
            }
            Item { width: 1; height: Tokens.space2 }
            Label {
                id: message

                // At most six lines; fewer if the card's margins require it.
                readonly property int lines: {
                    const fixed = heading.height + buttons.height + Tokens.space2 + Tokens.space4
                    const available = dialog.height - 2 * Tokens.space4 - 2 * Tokens.space5 - fixed
                    return Math.max(1, Math.min(6, Math.floor(available / type.line)))
                }

                width: parent.width
                // Reserve two and a half lines for the rest of the text and for line breaks.
                text: dialog.shortened.length === 0
                      ? dialog.text : dialog.text.replace(dialog.shortened, () => elidedPart.elidedText)
                type: Tokens.body
                color: dialog.theme.dimText
                wrapMode: Text.Wrap
                maximumLineCount: lines
                elide: Text.ElideRight

                TextMetrics {
                    id: elidedPart
                    font: message.font
                    text: dialog.shortened
                    elide: Text.ElideRight
                    elideWidth: Math.max(1, message.lines - 2.5) * message.width
                }
            }
            Item { width: 1; height: Tokens.space4 }
            Row {
                id: buttons
                anchors.right: parent.right
                spacing: Tokens.space2

                Button {
                    id: cancel
                    focus: true
                    implicitHeight: 32 + Tokens.growth(20)
                    type: dialog.buttonType
                    leftPadding: Tokens.space4
                    rightPadding: Tokens.space4
                    text: dialog.cancelText
                    theme: dialog.theme
                    onClicked: dialog.cancelled()
                }
                Button {
                    implicitHeight: 32 + Tokens.growth(20)
                    type: dialog.buttonType
                    leftPadding: Tokens.space4
                    rightPadding: Tokens.space4
                    text: dialog.confirmText
                    kind: Button.Danger
                    theme: dialog.theme
                    onClicked: dialog.confirmed()
                }
            }
        }
    }
}
