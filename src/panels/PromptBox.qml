import QtQuick
import Quellora.Panels
import Quellora.Ui

/// The prompt box: the text field with the model picker and the actions below. In the compact size,
/// it also contains the thread controls.
Rectangle {
    id: box

    required property BottomPanelsModel panels
    property bool compact: false
    property bool isModelListOpen: false
    property bool isPromptListOpen: false
    /// Whether Return and the arrow keys choose from the list of prompts.
    property bool isOfferingPrompt: false
    /// The prompt that Return would choose.
    property string offeredPrompt
    readonly property alias textItem: input
    readonly property alias pickerItem: picker
    readonly property alias promptsItem: promptsButton
    readonly property real textHeight: input.contentHeight + pasted.shownHeight
    readonly property ThemeTokens theme: Tokens.frame
    readonly property int edge: compact ? 4 : 6
    /// Height of a line of the text.
    readonly property int lineHeight: Tokens.body.line
    readonly property int rowY: height - picker.height - (compact ? 4 : 6)
    /// Top edge of the buttons, centred on the model picker.
    readonly property int buttonY: rowY + Math.round((picker.height - note.height) / 2)

    signal modelListToggled()
    signal promptListToggled()
    /// The user has changed the text.
    signal edited(string text)
    signal offeredPromptMoved(int rows)
    signal offeredPromptChosen()

    function focusInput(reason) {
        input.forceActiveFocus(reason)
    }
    /// Inserts at the cursor, over the selection; @p replacesAll replaces the typed text instead.
    function insert(text, replacesAll) {
        if (replacesAll)
            input.remove(0, input.length)
        else
            input.remove(input.selectionStart, input.selectionEnd)
        input.insert(input.cursorPosition, text)
    }

    radius: Tokens.radiusMenu
    color: theme.input
    border.width: input.activeFocus ? 2 : 1
    border.color: input.activeFocus ? theme.fieldFocus : theme.outline
    antialiasing: true

    Flickable {
        id: scroller
        x: 2
        y: 7
        width: parent.width - 4
        // Rounded down to whole lines.
        height: Math.floor((box.rowY - y) / box.lineHeight) * box.lineHeight
        contentWidth: width
        contentHeight: input.implicitHeight + pasted.shownHeight
        boundsBehavior: Flickable.StopAtBounds
        clip: true
        interactive: contentHeight > height

        function reveal(cursor) {
            if (cursor.y < contentY)
                contentY = cursor.y
            else if (cursor.y + cursor.height > contentY + height)
                contentY = cursor.y + cursor.height - height
            contentY = Math.max(0, Math.min(contentY, contentHeight - height))
        }
        function revealPasted() {
            contentY = Math.max(0, contentHeight - height)
        }

        TextEdit {
            id: input
            objectName: "promptInput"
            x: box.compact ? 8 : 10
            width: scroller.width - 2 * x
            // Fills the box, so that a press anywhere focuses the text.
            height: Math.max(implicitHeight, box.lineHeight,
                             (box.compact ? 1 : 2) * Math.max(20, box.lineHeight)
                             - pasted.shownHeight)
            focus: true
            activeFocusOnTab: true
            persistentSelection: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            textFormat: TextEdit.PlainText
            color: box.theme.text
            selectionColor: box.theme.selection
            selectedTextColor: box.theme.text
            font.family: Tokens.family
            font.pixelSize: Tokens.body.size
            onTextChanged: {
                if (!isLoaded)
                    return
                box.panels.typedText = text
                if (!isLoading)
                    box.edited(text)
            }
            onActiveFocusChanged: {
                box.panels.isPromptFocused = activeFocus
                if (activeFocus)
                    Qt.callLater(input.stopBuiltInBlinking)
            }
            onCursorRectangleChanged: scroller.reveal(cursorRectangle)

            Accessible.role: Accessible.EditableText
            Accessible.name: placeholder.text
            Accessible.description: box.offeredPrompt.length > 0
                                    ? qsTr("Return inserts the prompt “%1”").arg(box.offeredPrompt)
                                    : ""
            Accessible.multiLine: true
            Accessible.focusable: true

            cursorDelegate: PromptCaret {
                field: input
                color: box.theme.accentText
            }
            Keys.onPressed: event => {
                if (event.matches(StandardKey.Paste))
                    event.accepted = box.panels.pastePicture()
                            || input.pasteLongText(selectionStart, selectionEnd, false)
            }
            Keys.onUpPressed: event => box.moveOffered(event, -1)
            Keys.onDownPressed: event => box.moveOffered(event, 1)
            Keys.onReturnPressed: event => box.returnPressed(event)
            Keys.onEnterPressed: event => box.returnPressed(event)
            Keys.onTabPressed: input.nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason)
            Keys.onBacktabPressed: input.nextItemInFocusChain(false)
                                   .forceActiveFocus(Qt.BacktabFocusReason)
            HoverHandler { cursorShape: Qt.IBeamCursor }

            // Stops the built-in cursor's blink timer; PromptCaret blinks only for a limited time.
            function stopBuiltInBlinking() {
                cursorVisible = true
                cursorVisible = false
            }
            function load() {
                if (input.text === box.panels.typedText)
                    return
                isLoading = true
                input.text = box.panels.typedText
                isLoading = false
                input.cursorPosition = input.length
            }
            function pasteLongText(start, end, fromSelection) {
                if (!box.panels.pasteLongText(start, end, fromSelection))
                    return false
                Qt.callLater(scroller.revealPasted)
                return true
            }
            // Prevents the initial empty text from being stored.
            property bool isLoaded: false
            /// The text is being replaced by the stored one.
            property bool isLoading: false
            Component.onCompleted: {
                load()
                isLoaded = true
            }
            // The middle button pastes the primary selection where available.
            MouseArea {
                anchors.fill: parent
                acceptedButtons: Qt.MiddleButton
                cursorShape: Qt.IBeamCursor
                onPressed: mouse => {
                    const position = input.positionAt(mouse.x, mouse.y)
                    mouse.accepted = input.pasteLongText(position, position, true)
                }
            }
            LineHeight {
                document: input.textDocument
                pixels: box.lineHeight
            }
            Connections {
                target: box.panels
                function onPromptTextChanged() { input.load() }
                function onPromptFocusRequested() { box.focusInput(Qt.OtherFocusReason) }
            }
        }
        PastedText {
            id: pasted
            readonly property real shownHeight: visible ? height : 0
            x: input.x
            y: input.height
            width: input.width
            visible: box.panels.pastedCaption.length > 0
            panels: box.panels
        }
        Label {
            id: placeholder
            x: input.x
            width: input.width
            visible: input.length === 0 && input.preeditText.length === 0
            text: qsTr("Write a message")
            type: Tokens.body
            color: box.theme.placeholder
            elide: Text.ElideRight
            Accessible.ignored: true
        }
    }
    ScrollMark {
        parent: box
        flickable: scroller
        x: box.width - 7
        transform: Translate { y: scroller.y }
    }

    function returnPressed(event) {
        if (event.modifiers & Qt.ShiftModifier) {
            event.accepted = false
            return
        }
        if (box.isOfferingPrompt)
            box.offeredPromptChosen()
        else
            box.panels.send()
    }
    function moveOffered(event, rows) {
        event.accepted = box.isOfferingPrompt && event.modifiers === Qt.NoModifier
        if (event.accepted)
            box.offeredPromptMoved(rows)
    }

    ModelPicker {
        id: picker
        x: box.edge
        y: box.rowY
        panels: box.panels
        // Larger text takes what the buttons leave.
        maximumLabelWidth: {
            const normal = box.compact ? 60 : 120
            const buttons = (box.compact ? 3 * (note.width + 2) : 17 + note.width + 8)
                          + (promptsButton.visible ? promptsButton.width + 2 : 0)
            const room = captureOnly.x - 4 - box.edge - buttons - 28
            const wanted = Math.min(Tokens.grown(normal), room)
            // In the smallest window, the name gives way to the button of the prompts.
            return Math.max(promptsButton.visible ? Math.min(normal, 40) : normal, wanted)
        }
        isOpen: box.isModelListOpen
        onClicked: box.modelListToggled()
    }
    IconButton {
        id: promptsButton
        objectName: "prompts"
        visible: box.panels.prompts.isAvailable
        x: picker.x + picker.width + 2
        y: box.buttonY
        iconName: "square-slash"
        name: qsTr("Prompts")
        shortcutText: qsTr("/")
        active: box.isPromptListOpen
        onClicked: box.promptListToggled()
    }
    Hairline {
        id: divider
        readonly property Item before: promptsButton.visible ? promptsButton : picker
        visible: !box.compact
        x: before.x + before.width + 8
        y: box.buttonY + 6
        isVertical: true
        height: 16
        color: Qt.rgba(1, 1, 1, 0.13)
    }
    IconButton {
        id: note
        objectName: "addNote"
        x: box.compact ? divider.before.x + divider.before.width + 2 : divider.x + 9
        y: box.buttonY
        iconName: "square-pen"
        name: qsTr("Add note")
        disabledReason: qsTr("Write the note in the box first")
        enabled: !box.panels.isPromptEmpty
        onClicked: box.panels.addNote()
    }
    IconButton {
        id: captureOnly
        objectName: "captureNoSend"
        x: captureSend.x - width - (box.compact ? 2 : 4)
        y: box.buttonY
        iconName: "image-plus"
        name: qsTr("Capture without sending")
        shortcutText: box.panels.hotkeys.capture_no_send ?? ""
        disabledReason: qsTr("A capture is under way")
        enabled: !box.panels.isCapturing
        onClicked: box.panels.captureNoSend()
    }
    IconButton {
        id: captureSend
        objectName: "captureAndSend"
        x: sendButton.x - width - (box.compact ? 6 : 12)
        y: box.buttonY
        look: IconButton.Boxed
        iconName: "camera"
        name: qsTr("Capture and send")
        shortcutText: box.panels.hotkeys.capture ?? ""
        disabledReason: qsTr("A capture is under way")
        enabled: !box.panels.isCapturing
        busy: box.panels.isCapturing
        blocked: box.panels.isBlocked && !box.panels.isCapturing
        blockedReason: box.panels.blockedReason
        onClicked: box.panels.captureAndSend()
    }
    IconButton {
        id: sendButton
        objectName: "send"
        x: box.width - width - box.edge
        y: box.buttonY
        look: IconButton.Filled
        iconName: "arrow-up"
        iconSize: 15
        iconStroke: 2.75
        name: qsTr("Send")
        shortcutText: qsTr("Return")
        disabledReason: qsTr("Send needs text in the box")
        enabled: box.panels.isBlocked || !box.panels.isPromptEmpty
        blocked: box.panels.isBlocked
        blockedReason: box.panels.blockedReason
        onClicked: box.panels.send()
    }
    IconButton {
        id: save
        objectName: "compactSaveThread"
        visible: box.compact
        x: note.x + note.width + 2
        y: box.buttonY
        iconName: "hard-drive"
        name: qsTr("Save thread")
        role: Accessible.CheckBox
        isSwitch: true
        isOn: box.panels.settings.keepAIHistoryEnabled
        foreground: isOn ? box.theme.accentText : box.theme.icon
        onClicked: flip()

        function flip() {
            box.panels.settings.keepAIHistoryEnabled = !isOn
        }

        Accessible.checkable: true
        Accessible.checked: isOn
        Accessible.onToggleAction: flip()
    }
    IconButton {
        objectName: "compactNewThread"
        visible: box.compact
        x: save.x + save.width + 2
        y: box.buttonY
        iconName: "plus"
        name: qsTr("New thread")
        shortcutText: box.panels.hotkeys.new_thread ?? ""
        onClicked: box.panels.startNewThread()
    }
}
