import QtQuick
import Quellora.Panels
import Quellora.Ui

/// The controls at the bottom of the overlay. Reports its implicit height to the model.
FocusScope {
    id: view

    required property BottomPanelsModel panels
    property bool compact: false
    property bool isModelListOpen: false
    property bool isPromptListOpen: false
    /// Whether the list of prompts is open because of a slash in the prompt box, which keeps the
    /// focus.
    property bool isPromptTyped: false
    /// Set when the user has closed that list, until the text begins with no slash any more.
    property bool isSlashText: false
    property bool isInserting: false
    readonly property bool isListOpen: isModelListOpen || isPromptListOpen
    readonly property alias layout: layout
    readonly property Item promptItem: prompt.textItem

    function focusPrompt(reason) {
        prompt.focusInput(reason)
    }
    function openPromptList() {
        closeModelList()
        panels.prompts.showAll()
        isPromptTyped = false
        promptList.byKeyboard = prompt.promptsItem.visualFocus
        promptList.list.currentIndex = 0
        isPromptListOpen = true
        promptList.list.forceActiveFocus(Qt.PopupFocusReason)
    }
    function closePromptList() {
        const hadFocus = promptList.list.activeFocus
        isPromptListOpen = false
        isPromptTyped = false
        if (hadFocus)
            prompt.promptsItem.forceActiveFocus(promptList.byKeyboard ? Qt.TabFocusReason
                                                                      : Qt.OtherFocusReason)
    }
    function choosePrompt(row) {
        const text = panels.prompts.textAt(row)
        const replacesAll = isPromptTyped
        isPromptListOpen = false
        isPromptTyped = false
        isInserting = true
        if (text.length > 0)
            prompt.insert(text, replacesAll)
        isInserting = false
        // A prompt that begins with a slash asks for no other one.
        isSlashText = prompt.textItem.text.startsWith("/")
        prompt.focusInput(Qt.OtherFocusReason)
    }
    /// Lists the prompts that the text asks for.
    function followSlash(text) {
        if (isInserting)
            return
        if (!text.startsWith("/"))
            isSlashText = false
        const isAsking = text.startsWith("/") && !isSlashText && prompt.textItem.activeFocus
                         && panels.prompts.showMatches(text)
        if (isAsking && !isPromptTyped) {
            closeModelList()
            promptList.byKeyboard = false
            isPromptTyped = true
            isPromptListOpen = true
        } else if (!isAsking && isPromptTyped) {
            closePromptList()
        }
        if (isAsking)
            promptList.list.currentIndex = 0
    }
    /// Closes an open list; one that a slash has opened stays closed for this text.
    function closeLists() {
        if (isPromptTyped)
            isSlashText = true
        closeModelList()
        closePromptList()
    }
    function openModelList() {
        closePromptList()
        modelList.byKeyboard = prompt.pickerItem.visualFocus
        modelList.list.currentIndex = panels.models.rowOf(panels.models.selectedId)
        view.isModelListOpen = true
        modelList.list.forceActiveFocus(Qt.PopupFocusReason)
    }
    function closeModelList() {
        const hadFocus = modelList.list.activeFocus
        view.isModelListOpen = false
        if (hadFocus)
            prompt.pickerItem.forceActiveFocus(modelList.byKeyboard ? Qt.TabFocusReason
                                                                    : Qt.OtherFocusReason)
    }

    implicitHeight: layout.totalHeight
    onImplicitHeightChanged: panels.reportHeight(implicitHeight)
    Component.onCompleted: panels.reportHeight(implicitHeight)

    BottomPanelsLayout {
        id: layout
        compact: view.compact
        textScale: Tokens.textScale
        availableHeight: view.panels.availableHeight
        hasCard: view.panels.hasMessage
        isCardCollapsed: view.panels.isMessageCollapsed
        cardBodyHeight: card.bodyHeight
        hasFirstLaunchCard: !view.panels.settings.hasLaunchedBefore
        firstLaunchCardHeight: firstLaunch.implicitHeight
        hasAttachment: view.panels.hasAttachedScreenshot
        isEditing: view.panels.isEditing
        isModelListOpen: view.isListOpen
        modelCount: view.isPromptListOpen ? view.panels.prompts.count : view.panels.models.count
        promptTextHeight: prompt.textHeight
    }

    Binding {
        target: view.panels
        property: "textScale"
        value: Tokens.textScale
    }
    Connections {
        target: view.panels.models
        function onCountChanged() {
            if (view.panels.models.count === 0)
                view.closeModelList()
        }
    }
    Connections {
        target: prompt.textItem
        function onActiveFocusChanged() {
            if (!prompt.textItem.activeFocus && view.isPromptTyped)
                view.closePromptList()
        }
    }
    Connections {
        target: view.panels.prompts
        function onCountChanged() {
            if (view.panels.prompts.count === 0)
                view.closePromptList()
        }
    }

    Item {
        id: content
        readonly property real inset: view.compact ? 6 : 12

        width: Math.min(view.width - 2 * inset, 960)
        height: parent.height
        anchors.horizontalCenter: parent.horizontalCenter

        Flickable {
            id: upper
            objectName: "upperPanels"
            readonly property bool overflows: contentHeight > height + 0.5

            y: layout.pad
            width: parent.width
            // The gap below the last row stays visible while the rows scroll.
            height: Math.max(0, layout.upperHeight - layout.gap)
            contentWidth: width
            contentHeight: Math.max(0, layout.upperContentHeight - layout.gap)
            boundsBehavior: Flickable.StopAtBounds
            interactive: overflows
            clip: overflows

            ServiceCard {
                id: card
                objectName: "serviceCard"
                panels: view.panels
                compact: view.compact
                headerHeight: layout.cardHeaderHeight
                visible: layout.hasCard && layout.areCardsShown
                width: parent.width
                height: layout.cardHeight
            }
            FirstLaunchCard {
                id: firstLaunch
                objectName: "firstLaunchCard"
                panels: view.panels
                compact: view.compact
                visible: layout.hasFirstLaunchCard && layout.areCardsShown
                y: card.visible ? card.height + layout.gap : 0
                width: parent.width
                height: implicitHeight
            }
            ModelList {
                id: modelList
                objectName: "modelCard"

                property real progress: view.isModelListOpen ? 1 : 0

                panels: view.panels
                compact: view.compact
                rowHeight: layout.modelRowHeight
                y: firstLaunch.visible ? firstLaunch.y + firstLaunch.height + layout.gap
                                       : firstLaunch.y
                width: parent.width
                height: layout.modelListHeight
                visible: view.isModelListOpen
                opacity: Tokens.opacityStep(progress)
                onClosed: view.closeModelList()

                Behavior on progress {
                    NumberAnimation {
                        duration: Tokens.menuTime
                        easing.type: Easing.Bezier
                        easing.bezierCurve: Tokens.standardCurve
                    }
                }
            }
            PromptList {
                id: promptList
                objectName: "promptCard"
                panels: view.panels
                compact: view.compact
                rowHeight: layout.modelRowHeight
                followsTyping: view.isPromptTyped
                y: modelList.y
                width: parent.width
                height: layout.modelListHeight
                visible: view.isPromptListOpen
                onChosen: row => view.choosePrompt(row)
                onClosed: view.closePromptList()
            }
            AttachmentRow {
                id: attachment
                objectName: "attachmentRow"
                panels: view.panels
                compact: view.compact
                visible: layout.hasAttachment && layout.areCardsShown
                y: view.isListOpen ? modelList.y + modelList.height + layout.gap : modelList.y
                width: parent.width
                height: layout.attachmentHeight
            }
            EditingRow {
                objectName: "editingRow"
                panels: view.panels
                visible: layout.isEditing && layout.areCardsShown
                y: attachment.visible ? attachment.y + attachment.height + layout.gap
                                      : attachment.y
                width: parent.width
                height: layout.editingHeight
            }
        }
        ScrollMark {
            flickable: upper
            x: parent.width + 1
            transform: Translate { y: upper.y }
        }
        PromptBox {
            id: prompt
            objectName: "promptBox"
            panels: view.panels
            compact: view.compact
            isModelListOpen: view.isModelListOpen
            isPromptListOpen: view.isPromptListOpen
            isOfferingPrompt: view.isPromptTyped
            offeredPrompt: view.isPromptTyped && promptList.list.currentItem
                           ? promptList.list.currentItem.name : ""
            onEdited: text => view.followSlash(text)
            onOfferedPromptMoved: rows => {
                const list = promptList.list
                list.currentIndex = Math.max(0, Math.min(list.count - 1, list.currentIndex + rows))
            }
            onOfferedPromptChosen: view.choosePrompt(promptList.list.currentIndex)
            onPromptListToggled: {
                if (view.isPromptListOpen)
                    view.closePromptList()
                else
                    view.openPromptList()
            }
            y: layout.pad + layout.upperHeight
            width: parent.width
            height: layout.promptHeight
            onModelListToggled: {
                if (view.isModelListOpen)
                    view.closeModelList()
                else
                    view.openModelList()
            }
        }
        ThreadControls {
            objectName: "threadControls"
            visible: !view.compact
            panels: view.panels
            y: prompt.y + prompt.height + layout.gap
            width: parent.width
            height: layout.controlsHeight
        }
    }
}
