import QtQuick
import Quellora.Overlay
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// The content of the overlay's window.
FocusScope {
    id: root

    required property OverlayModel overlay
    required property BottomPanelsModel panels
    required property HamburgerMenuModel menu
    required property ResponseScrollbarModel scrollbar
    property HistoryModel history
    required property NonFocusPanel panelWindow
    /// Null in a panel without settings.
    property SettingsModel settings
    /// Null in a panel that cannot find text.
    property FindModel find
    /// Null in a panel that never asks before it sends.
    property LookModel look
    property url responseView
    property QtObject responseHost
    /// Set after the panel's first frame: creating the web view late makes the panel appear sooner.
    property bool isResponseActive: false
    readonly property bool compact: overlay.isCompact
    readonly property real corner: overlay.isCompositing ? Tokens.radiusWindow : 0
    readonly property color surface: overlay.isCompositing ? Tokens.frame.background
                                                           : Tokens.frame.opaqueBackground

    readonly property bool isHistoryOpen: history !== null && history.isOpen
    readonly property bool isLooking: look !== null && look.isOpen
    readonly property bool isRenaming: history !== null && history.isRenaming

    onIsResponseActiveChanged: {
        if (isResponseActive && responseView.toString().length > 0)
            response.setSource(responseView, {"host": responseHost})
    }

    /// The topmost open sheet, dialog or menu that confines the keyboard focus, or null.
    function keyboardScope() {
        if (isLooking)
            return lookDialog.item
        if (overlay.isMenuOpen)
            return menuView
        if (settingsSheet.isOpen)
            return settingsSheet.item
        return isHistoryOpen ? sidebar.item.keyboardScope : null
    }
    function isWithin(item, outer) {
        while (item && item !== outer)
            item = item.parent
        return item !== null && item === outer
    }
    /// Moves the focus back into the open scope. The answer may keep it while the menu is open.
    function keepFocus() {
        const scope = keyboardScope()
        const item = Window.activeFocusItem
        if (scope && item && !isWithin(item, scope)
                && !(scope === menuView && isWithin(item, response)))
            scope.forceActiveFocus(Qt.OtherFocusReason)
    }
    /// Closes the topmost sheet, dialog or menu.
    function closeTopmost() {
        if (isLooking)
            look.drop()
        else if (overlay.isMenuOpen)
            menuView.close(true)
        else if (settingsSheet.isOpen)
            settingsSheet.item.closeTopmost()
        else if (isHistoryOpen)
            sidebar.item.close(true)
        else if (bottom.isListOpen)
            bottom.closeLists()
        else if (strip.isFinding)
            strip.closeFind()
        else if (panelWindow.isKeyboardLent)
            panelWindow.leaveAnswer()
        else
            panels.cancelEditing()
    }
    /// Moves the focus to the next (1) or previous (-1) of prompt, strip and answer.
    function cycleFocus(direction) {
        const scope = keyboardScope()
        if (scope) {
            if (!isWithin(Window.activeFocusItem, scope))
                scope.forceActiveFocus(Qt.TabFocusReason)
            return
        }
        const control = strip.firstControl()
        const regions = [bottom.promptItem]
        if (control)
            regions.push(control)
        if (response.item)
            regions.push(response)
        const inStrip = strip.activeFocus && control
        let current = inStrip ? 1 : response.activeFocus ? regions.indexOf(response) : 0
        if (!inStrip && !response.activeFocus && !bottom.promptItem.activeFocus)
            current = direction > 0 ? -1 : 1
        const next = regions[(current + direction + regions.length) % regions.length]
        // The loader itself is not focusable; the page inside it is.
        const inner = next === response ? next.nextItemInFocusChain(true) : null
        const target = isWithin(inner, response) ? inner : next
        target.forceActiveFocus(Qt.TabFocusReason)
    }

    // Presses not accepted by any control drag the panel.
    MouseArea {
        objectName: "dragArea"
        anchors.fill: parent
        acceptedButtons: Qt.LeftButton
        onPressed: mouse => root.panelWindow.mouseDown(Qt.point(mouse.x, mouse.y))
    }

    // Opaque background behind the translucent colours when there is no compositor.
    Rectangle {
        anchors.fill: parent
        visible: !root.overlay.isCompositing
        color: Tokens.frame.opaqueBackground
    }
    Rectangle {
        visible: !root.overlay.isCompositing
        x: root.overlay.responseRect.x
        y: root.overlay.responseRect.y
        width: root.overlay.responseRect.width
        height: root.overlay.responseRect.height
        color: Qt.rgba(root.overlay.responseColor.r, root.overlay.responseColor.g,
                       root.overlay.responseColor.b, 1)
    }

    Item {
        width: parent.width
        height: strip.y + strip.height
        clip: true

        Rectangle {
            width: parent.width
            height: parent.height + 2 * Tokens.radiusWindow
            radius: root.corner
            color: root.surface
        }
    }
    Item {
        y: parent.height - height
        width: parent.width
        height: bottom.height
        clip: true

        Rectangle {
            y: -2 * Tokens.radiusWindow
            width: parent.width
            height: parent.height + 2 * Tokens.radiusWindow
            radius: root.corner
            color: root.surface
        }
        Hairline {
            width: parent.width
            color: Tokens.frame.line
        }
    }

    // Declared before the items shown above it, so that it comes first in the Tab order.
    BottomPanelsView {
        id: bottom
        objectName: "bottomPanels"
        panels: root.panels
        compact: root.compact
        focus: true
        y: parent.height - height
        width: parent.width
        height: implicitHeight
    }
    ControlBar {
        id: bar
        objectName: "controlBar"
        overlay: root.overlay
        width: parent.width
        height: 34
    }
    StatusStrip {
        id: strip
        objectName: "strip"
        overlay: root.overlay
        compact: root.compact
        clicksShortcut: root.panels.hotkeys.toggle_clicks ?? ""
        retryShortcut: root.panels.hotkeys.retry ?? ""
        find: root.find
        prompt: bottom.promptItem
        isCovered: settingsSheet.isOpen || root.isHistoryOpen
        y: 34
        width: parent.width
        height: root.overlay.stripHeight
    }
    Binding {
        target: root.overlay
        property: "textScale"
        value: Tokens.textScale
    }
    Item {
        id: area
        objectName: "responseArea"
        readonly property bool takesKeyboard: root.overlay.takesClicks
        x: root.overlay.responseRect.x
        y: root.overlay.responseRect.y
        width: root.overlay.responseRect.width
        height: root.overlay.responseRect.height

        Rectangle {
            objectName: "responseBackdrop"
            anchors.fill: parent
            color: root.overlay.responseColor
            opacity: root.overlay.currentAlpha
        }
        Rectangle {
            objectName: "responseBackground"
            anchors.fill: parent
            color: root.overlay.responseColor
            opacity: root.overlay.currentAlpha
        }
        Rectangle {
            width: 4
            height: parent.height
            color: root.overlay.leftBorderColor
        }
        Loader {
            id: response
            objectName: "responseLoader"
            anchors.fill: parent
        }
        Binding {
            target: response.item
            property: "reducedMotion"
            value: Tokens.reducedMotion
        }
        Binding {
            target: response.item
            property: "textScale"
            // The page takes factors from 0.25 to 5.
            value: Math.max(0.25, Math.min(5, Tokens.textScale * root.overlay.answerTextScale))
        }
    }
    Announcements {
        overlay: root.overlay
        y: strip.y
    }
    ResponseScrollbarView {
        objectName: "responseScrollbar"
        scrollbar: root.scrollbar
        x: parent.width - width
        y: root.overlay.responseRect.y
        width: 28
        height: root.overlay.responseRect.height
    }
    NoticeBubble {
        objectName: "noticeBubble"
        visible: strip.isNoticeShown && strip.isFinding
        overlay: root.overlay
        x: 12
        y: strip.y + strip.height + 6
        // Beside the scrollbar.
        maximumWidth: root.width - 28 - 2 * x
    }

    Loader {
        id: sidebar
        anchors.fill: parent
        active: root.history !== null

        sourceComponent: HistorySidebarOverlay {
            objectName: "historySidebar"
            history: root.history
            undoText: root.overlay.undoText
            onUndone: root.overlay.undo()
            theme: Tokens.sheet(!root.overlay.isLightTheme)
            compact: root.compact
            cornerRadius: root.corner
            opener: bar.menuButton
        }
    }
    SettingsLoader {
        id: settingsSheet
        settings: root.settings
        undoText: root.overlay.undoText
        onUndone: root.overlay.undo()
        y: 34
        width: parent.width
        height: parent.height - y
        compact: root.compact
        cornerRadius: root.corner
        opener: bar.menuButton
    }

    Rectangle {
        anchors.fill: parent
        radius: root.corner
        color: "transparent"
        border.width: 1
        border.color: Tokens.frame.windowEdge
        antialiasing: true
    }

    HamburgerMenuOverlay {
        id: menuView
        objectName: "menuOverlay"
        anchors.fill: parent
        menu: root.menu
        compact: root.compact
        open: root.overlay.isMenuOpen
        opener: settingsSheet.isOpen ? settingsSheet.firstControl
              : root.isHistoryOpen ? (root.menu.isExportShown && sidebar.item.exportSource || sidebar.item.firstControl)
              : bar.menuButton
        exportCorner: root.isHistoryOpen ? sidebar.item.exportCorner : Qt.point(-1, -1)
        // Presses pass through to the answer, but not to a sheet that covers it.
        passage: settingsSheet.isOpen || root.isHistoryOpen ? Qt.rect(0, 0, 0, 0)
                                                            : root.overlay.responseRect
    }
    PictureDrop {
        objectName: "pictureDrop"
        anchors.fill: parent
        panels: root.panels
        enabled: root.keyboardScope() === null
    }
    Loader {
        id: lookDialog
        anchors.fill: parent
        active: root.look !== null

        sourceComponent: LookDialog {
            objectName: "lookDialog"
            look: root.look
            theme: Tokens.sheet(!root.overlay.isLightTheme)
            compact: root.compact
            cornerRadius: root.corner
        }
    }
    ResizeHandles {
        anchors.fill: parent
        panelWindow: root.panelWindow
    }

    Shortcut {
        // Qt maps the Command key to Ctrl on macOS and to Meta elsewhere.
        sequence: Qt.platform.os === "osx" ? "Ctrl+." : "Meta+."
        enabled: root.overlay.canStop
        onActivated: root.overlay.stop()
    }
    Shortcut {
        sequences: ["Ctrl++", "Ctrl+="]
        onActivated: root.overlay.changeAnswerText(1)
    }
    Shortcut {
        sequence: "Ctrl+-"
        onActivated: root.overlay.changeAnswerText(-1)
    }
    Shortcut {
        sequence: "Ctrl+0"
        onActivated: root.overlay.changeAnswerText(0)
    }
    Shortcut {
        // A text that has the focus undoes its own changes instead.
        sequences: [StandardKey.Undo]
        enabled: root.overlay.undoText.length > 0
        onActivated: root.overlay.undo()
    }
    Shortcut {
        sequence: "F6"
        onActivated: root.cycleFocus(1)
    }
    Shortcut {
        sequence: "Shift+F6"
        onActivated: root.cycleFocus(-1)
    }
    Shortcut {
        sequences: [StandardKey.Find]
        onActivated: {
            if (root.isHistoryOpen)
                sidebar.item.startSearch()
            else if (root.keyboardScope() === null && root.find)
                strip.startFind()
        }
    }
    Shortcut {
        // While a title is being edited, Escape ends the editing instead.
        sequence: "Escape"
        enabled: root.keyboardScope() !== null && !root.isRenaming || bottom.isListOpen
                 || root.panelWindow.isKeyboardLent || root.panels.isEditing || strip.isFinding
        onActivated: root.closeTopmost()
    }
    Connections {
        target: root.panelWindow
        function onAnswerLeft() { bottom.promptItem.forceActiveFocus(Qt.OtherFocusReason) }
    }
    Connections {
        target: root.Window.window
        function onActiveFocusItemChanged() { Qt.callLater(root.keepFocus) }
    }
}
