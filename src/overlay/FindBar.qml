import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// Finds a text in the thread on show: the text, the count, the steps and Close, in the strip's place of the
/// title. Escape closes it and gives the focus back to the item that had it.
FocusScope {
    id: bar

    required property FindModel find
    property bool compact: false
    /// The item that had the focus when the bar opened.
    property Item opener: null
    /// Receives the focus if the opener is gone.
    property Item fallback: null

    /// Opens the bar, or selects its text if it is open.
    function start() {
        if (!bar.find.isOpen) {
            bar.opener = bar.Window.activeFocusItem
            bar.find.open()
        }
        field.forceActiveFocus(Qt.ShortcutFocusReason)
        field.selectAll()
    }
    function close() {
        if (!bar.find.isOpen)
            return
        const hadFocus = bar.activeFocus
        bar.find.close()
        if (!hadFocus)
            return
        const target = bar.opener && bar.opener.visible ? bar.opener : bar.fallback
        if (target)
            target.forceActiveFocus(Qt.OtherFocusReason)
    }

    visible: find.isOpen
    enabled: visible
    Keys.onEscapePressed: bar.close()

    Icon {
        id: glass
        visible: !bar.compact
        x: 2
        y: Math.round((bar.height - height) / 2)
        name: "search"
        size: 14
        color: Tokens.frame.dimText
    }
    TextField {
        id: field
        objectName: "findField"
        focus: true
        x: glass.visible ? 22 : 0
        y: Math.round((bar.height - height) / 2)
        width: Math.max(60, controls.x - Tokens.space2 - x)
        implicitHeight: 26 + Tokens.growth(20)
        // The count is inside, so that the buttons stay in place.
        rightPadding: count.visible ? count.width + 14 : 8
        leftPadding: 8
        name: qsTr("Find in thread")
        hint: qsTr("Return goes to the next one, Shift+Return to the previous one, Escape closes")
        placeholderText: name
        text: bar.find.text
        onTextEdited: bar.find.text = text
        Keys.onPressed: event => {
            if (event.key !== Qt.Key_Return && event.key !== Qt.Key_Enter)
                return
            if (event.modifiers & Qt.ShiftModifier)
                bar.find.previous()
            else
                bar.find.next()
            event.accepted = true
        }
    }
    Label {
        id: count
        objectName: "findCount"
        x: field.x + field.width - width - 8
        y: Math.round((bar.height - height) / 2)
        width: implicitWidth
        visible: text.length > 0
        text: bar.find.countText
        type: Tokens.caption
        color: bar.find.hasMatches ? Tokens.frame.dimText : Tokens.frame.warnText
        // Screen readers announce changes; it does not take focus.
        Accessible.role: Accessible.StatusBar
    }
    Row {
        id: controls
        x: bar.width - width
        height: bar.height

        IconButton {
            objectName: "findPrevious"
            anchors.verticalCenter: parent.verticalCenter
            enabled: bar.find.hasMatches
            iconName: "chevron-up"
            name: qsTr("Previous match")
            onClicked: bar.find.previous()
        }
        IconButton {
            objectName: "findNext"
            anchors.verticalCenter: parent.verticalCenter
            enabled: bar.find.hasMatches
            iconName: "chevron-down"
            name: qsTr("Next match")
            onClicked: bar.find.next()
        }
        IconButton {
            objectName: "findClose"
            anchors.verticalCenter: parent.verticalCenter
            iconName: "x"
            name: qsTr("Close find")
            onClicked: bar.close()
        }
    }
}
