import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Sheets
import Quellora.Ui

/// The settings sheet, which covers everything below the control bar. Traps Tab. Escape closes it and
/// returns the focus to `opener`.
SheetHost {
    id: sheet

    required property SettingsModel settings
    /// What was removed and can be brought back; empty for nothing.
    property string undoText
    property bool compact: false
    /// The control that opened the sheet.
    property Item opener
    property bool byKeyboard: false
    property bool isFocusPending: false
    readonly property Item firstControl: closeButton
    readonly property bool isAsking: settings.threads !== null && settings.threads.isAsking
    /// What had the focus before a question.
    property Item asker
    readonly property int pad: compact ? Tokens.space3 : Tokens.space5
    readonly property int headerHeight: (compact ? 40 : 48) + Tokens.growth(20)

    /// The closing animation has finished.
    signal closed()
    signal undone()

    /// Ends what is being edited or, if nothing is, closes the sheet.
    function closeTopmost() {
        const prompts = sheet.settings.promptRows
        if (sheet.isAsking)
            sheet.settings.threads.cancel()
        else if (prompts && prompts.isBusy)
            prompts.cancel()
        else
            sheet.closeRequested()
    }
    /// Takes the pending focus as soon as the sheet is visible and enabled.
    function takeFocus() {
        if (!isFocusPending || !visible || !enabled)
            return
        isFocusPending = false
        closeButton.forceActiveFocus(byKeyboard ? Qt.TabFocusReason : Qt.OtherFocusReason)
    }
    /// Scrolls an item of the content into view.
    function reveal(item) {
        for (let above = item; above; above = above.parent) {
            if (above !== sections)
                continue
            const top = item.mapToItem(sections, 0, 0).y + sections.y - 12
            const bottom = top + item.height + 24
            if (top < scroll.contentY)
                scroll.contentY = Math.max(0, top)
            else if (bottom > scroll.contentY + scroll.height)
                scroll.contentY = Math.min(scroll.range, bottom - scroll.height)
            return
        }
    }

    objectName: "settingsSheet"
    name: qsTr("Settings")
    theme: Tokens.sheet(!settings.isLightTheme)
    onCloseRequested: {
        byKeyboard = true
        // Discard a partly typed colour, which focus loss would apply.
        settings.restoreHexInput()
        settings.close()
    }
    onOpenChanged: {
        isFocusPending = open
        if (open) {
            byKeyboard = opener !== null && opener.visualFocus
            takeFocus()
            return
        }
        // Before disabling the sheet, which would clear the focus.
        if (opener && sheet.activeFocus)
            opener.forceActiveFocus(byKeyboard ? Qt.TabFocusReason : Qt.OtherFocusReason)
    }
    onEnabledChanged: takeFocus()
    onVisibleChanged: {
        takeFocus()
        if (!visible && !open)
            closed()
    }
    Keys.onPressed: event => {
        const page = scroll.height - 40
        switch (event.key) {
        case Qt.Key_PageUp:
            scroll.scrollBy(-page)
            break
        case Qt.Key_PageDown:
            scroll.scrollBy(page)
            break
        case Qt.Key_Up:
            scroll.scrollBy(-40)
            break
        case Qt.Key_Down:
            scroll.scrollBy(40)
            break
        case Qt.Key_Home:
            scroll.scrollBy(-scroll.range)
            break
        case Qt.Key_End:
            scroll.scrollBy(scroll.range)
            break
        default:
            return
        }
        event.accepted = true
    }

    Connections {
        target: sheet.Window.window
        function onActiveFocusItemChanged() {
            const item = sheet.Window.activeFocusItem
            if (!item)
                return
            sheet.reveal(item)
            if (!sheet.isAsking)
                sheet.asker = item
        }
    }

    Item {
        id: header
        width: sheet.width
        height: sheet.headerHeight

        Label {
            x: sheet.pad
            height: parent.height
            text: sheet.name
            type: Tokens.title
            theme: sheet.theme
            Accessible.role: Accessible.Heading
        }
        IconButton {
            id: closeButton
            objectName: "settingsClose"
            x: parent.width - width - 10
            y: (parent.height - height) / 2
            theme: sheet.theme
            iconName: "x"
            foreground: down || hovered ? theme.text : theme.dimText
            name: qsTr("Close")
            onClicked: {
                sheet.byKeyboard = visualFocus
                sheet.settings.close()
            }
        }
        Hairline {
            y: parent.height - 1
            width: parent.width
            color: sheet.theme.line
        }
    }
    Flickable {
        id: scroll
        objectName: "settingsScroll"

        readonly property real range: Math.max(0, contentHeight - height)

        function scrollBy(points) {
            contentY = Math.max(0, Math.min(range, contentY + points))
        }

        y: header.height
        width: sheet.width
        height: sheet.height - y - undoBar.height
        clip: true
        // Scroll by wheel and scroll bar only, because dragging selects text.
        interactive: false
        contentHeight: sections.height + 2 * sections.y
        onRangeChanged: scrollBy(0)

        WheelHandler {
            onWheel: event => scroll.scrollBy(event.pixelDelta.y !== 0 ? -event.pixelDelta.y
                                                                       : -event.angleDelta.y / 2)
        }
        SettingsContent {
            id: sections
            objectName: "settingsContent"
            x: Math.round((scroll.width - width) / 2)
            y: sheet.pad
            width: Math.min(scroll.width - 2 * sheet.pad, 640)
            settings: sheet.settings
            theme: sheet.theme
            compact: sheet.compact
            // Deferred until the item has been laid out.
            onRevealRequested: item => Qt.callLater(sheet.reveal, item)
        }
        Basic.ScrollBar.vertical: Basic.ScrollBar {
            id: bar
            x: scroll.width - width
            width: 14
            padding: 4
            minimumSize: 0.08
            visible: scroll.range > 0
            hoverEnabled: true
            Accessible.ignored: true

            background: null
            contentItem: Rectangle {
                implicitWidth: 6
                radius: 3
                antialiasing: true
                color: Tokens.faded(sheet.theme.outline, bar.pressed || bar.hovered ? 1 : 0.75)
            }
        }
    }
    UndoBar {
        id: undoBar
        objectName: "settingsUndo"
        y: sheet.height - height
        width: sheet.width
        height: implicitHeight
        theme: sheet.theme
        cornerRadius: sheet.cornerRadius
        text: sheet.undoText
        fallback: closeButton
        onUndone: sheet.undone()
    }
    onIsAskingChanged: {
        if (!isAsking && asker)
            asker.forceActiveFocus(Qt.TabFocusReason)
    }
    Dialog {
        objectName: "deleteThreadsQuestion"
        theme: sheet.theme
        cornerRadius: sheet.cornerRadius
        title: sheet.settings.threads?.questionTitle ?? ""
        text: sheet.settings.threads?.questionText ?? ""
        confirmText: qsTr("Delete")
        open: sheet.isAsking
        onCancelled: sheet.settings.threads.cancel()
        onConfirmed: sheet.settings.threads.confirm()
    }
}
