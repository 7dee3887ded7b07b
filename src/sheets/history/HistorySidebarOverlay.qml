import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// The stored threads: search, reopen, rename and delete. Covers its parent below the control bar.
Item {
    id: overlay

    required property HistoryModel history
    /// What was removed and can be brought back; empty for nothing.
    property string undoText
    property ThemeTokens theme: Tokens.sheetDark
    property bool compact: false
    /// Radius of the window's bottom corners.
    property real cornerRadius: 0
    /// Receives the focus when the sidebar closes.
    property Item opener
    property bool closedByKey: false
    /// Undo was pressed by key, so the focus goes to what comes back.
    property bool focusesRestored: false
    /// Where the choices for a thread were wanted last, and by which item.
    property point exportCorner: Qt.point(-1, -1)
    property Item exportSource
    /// The item that contains the keyboard focus while the sidebar is open.
    readonly property Item keyboardScope: history.isDeletePending ? dialog : sheet
    readonly property Item firstControl: search

    signal undone()

    /// Focuses a row, or the search field if there is none.
    function focusRow(row) {
        if (row >= list.count)
            row = list.count - 1
        if (row < 0) {
            search.forceActiveFocus(Qt.TabFocusReason)
            return
        }
        list.positionViewAtIndex(row, ListView.Contain)
        list.itemAtIndex(row).forceActiveFocus(Qt.TabFocusReason)
        list.currentIndex = row
    }
    /// Moves the focus into the search field, unless a dialog has it.
    function startSearch() {
        if (history.isDeletePending)
            return
        search.forceActiveFocus(Qt.ShortcutFocusReason)
        search.selectAll()
    }
    function close(byKey) {
        closedByKey = byKey
        history.close()
    }
    function openThread(row, byKey) {
        closedByKey = byKey
        history.open(row)
    }

    Connections {
        target: overlay.history
        function onOpenChanged() {
            if (overlay.history.isOpen) {
                search.forceActiveFocus()
                list.resetPosition()
                return
            }
            if (overlay.opener)
                overlay.opener.forceActiveFocus(overlay.closedByKey ? Qt.TabFocusReason
                                                                    : Qt.OtherFocusReason)
        }
        function onRowDeleted(row) {
            Qt.callLater(overlay.focusRow, row)
        }
        function onRowRestored(row) {
            if (overlay.focusesRestored)
                Qt.callLater(overlay.focusRow, row)
        }
    }

    SheetHost {
        id: sheet
        objectName: "historySheet"
        y: 34
        width: parent.width
        height: parent.height - y
        theme: overlay.theme
        name: qsTr("History")
        open: overlay.history.isOpen
        panelWidth: overlay.compact ? 0 : Tokens.grown(300)
        cornerRadius: overlay.cornerRadius
        onCloseRequested: overlay.close(false)

        Item {
            id: body
            width: overlay.compact ? overlay.width : Math.min(Tokens.grown(300), overlay.width)
            height: sheet.height
            readonly property int headerHeight: (overlay.compact ? 40 : 48) + Tokens.growth(20)

            Hairline {
                visible: !overlay.compact
                x: parent.width - 1
                isVertical: true
                height: parent.height
                color: overlay.theme.line
            }
            Label {
                x: Tokens.space4
                width: parent.width - 60
                height: body.headerHeight
                text: qsTr("History")
                type: Tokens.title
                theme: overlay.theme
                Accessible.role: Accessible.Heading
            }
            TextField {
                id: search
                objectName: "historySearch"
                x: Tokens.space3
                y: body.headerHeight
                width: parent.width - 2 * x
                leftPadding: 32
                rightPadding: 32
                theme: overlay.theme
                name: qsTr("Search threads")
                placeholderText: name
                text: overlay.history.searchText
                onTextEdited: overlay.history.searchText = text
                Keys.onDownPressed: overlay.focusRow(0)
                Keys.onReturnPressed: {
                    if (list.count === 1)
                        overlay.openThread(0, true)
                    else
                        overlay.focusRow(0)
                }

                Icon {
                    x: 10
                    anchors.verticalCenter: parent.verticalCenter
                    name: "search"
                    size: 14
                    color: overlay.theme.dimText
                }
            }
            // A sibling of the field, because the children of a field are not accessible.
            IconButton {
                objectName: "historyClearSearch"
                x: search.x + search.width - width - 2
                y: search.y + Math.round((search.height - height) / 2)
                visible: overlay.history.searchText.length > 0
                name: qsTr("Clear search")
                iconName: "x"
                iconSize: 14
                theme: overlay.theme
                onClicked: {
                    overlay.history.searchText = ""
                    search.forceActiveFocus()
                }
            }
            Label {
                id: notice
                objectName: "historyNotice"
                x: Tokens.space4
                y: search.y + search.height + Tokens.space2
                width: parent.width - 2 * x
                visible: text.length > 0
                text: overlay.history.notice
                type: Tokens.hint
                color: overlay.theme.dangerText
                wrapMode: Text.Wrap
                Accessible.role: Accessible.AlertMessage
            }

            ThreadListView {
                id: list
                objectName: "historyList"
                history: overlay.history
                x: Tokens.space2
                y: search.y + search.height + Tokens.space2
                   + (notice.visible ? notice.implicitHeight + Tokens.space1 : 0)
                width: parent.width - 2 * x
                height: parent.height - y - undoBar.height - (loading.visible ? loading.height : 0)
                bottomMargin: Tokens.space2
                onFocusedRowRemoved: row => overlay.focusRow(row)
                section.property: "day"
                section.delegate: Label {
                    required property string section
                    x: Tokens.space2
                    width: list.width - 2 * x
                    height: list.headingHeight
                    text: section
                    type: TypeTokens {
                        scale: Tokens.textScale
                        designSize: 11
                        designLine: 16
                        weight: Font.DemiBold
                    }
                    color: overlay.theme.dimText
                    verticalAlignment: Text.AlignBottom
                    bottomPadding: Tokens.space1
                    Accessible.role: Accessible.Heading
                }
                Accessible.role: Accessible.List
                Accessible.name: qsTr("Threads")

                Keys.onUpPressed: {
                    if (currentIndex > 0)
                        overlay.focusRow(currentIndex - 1)
                    else
                        search.forceActiveFocus(Qt.TabFocusReason)
                }
                Keys.onDownPressed: overlay.focusRow(currentIndex + 1)
                Keys.onPressed: event => {
                    const page = Math.max(1, Math.floor(height / list.rowHeight) - 1)
                    if (event.key === Qt.Key_Home)
                        overlay.focusRow(0)
                    else if (event.key === Qt.Key_End)
                        overlay.focusRow(count - 1)
                    else if (event.key === Qt.Key_PageDown)
                        overlay.focusRow(currentIndex + page)
                    else if (event.key === Qt.Key_PageUp)
                        overlay.focusRow(Math.max(0, currentIndex - page))
                    else
                        return
                    event.accepted = true
                }

                delegate: SessionRow {
                    theme: overlay.theme
                    width: list.width
                    ignoresFocusLoss: list.isRestoringFocus
                    // Assistive technology may focus any row.
                    onActiveFocusChanged: if (activeFocus) list.currentIndex = index
                    onClicked: overlay.openThread(index, visualFocus)
                    onRenamed: title => overlay.history.rename(index, title)
                    onEditingChanged: isEditing => {
                        if (isEditing)
                            list.currentIndex = index
                        overlay.history.setRenaming(isEditing)
                    }
                    onExportRequested: (corner, source) => {
                        list.currentIndex = index
                        overlay.exportSource = source
                        overlay.exportCorner = mapToItem(overlay, corner)
                        overlay.history.requestExport(index)
                    }
                    onDeleteRequested: {
                        list.currentIndex = index
                        overlay.history.requestDelete(index)
                    }
                }
            }
            ScrollMark {
                flickable: list
                x: parent.width - width - 2
                transform: Translate { y: list.y }
                color: overlay.theme.track
            }

            Flickable {
                objectName: "historyEmptyScroller"
                readonly property bool overflows: contentHeight > height + 0.5

                visible: list.count === 0 && !overlay.history.isLoading
                         && !overlay.history.isSearching && !notice.visible
                y: list.y
                width: parent.width
                height: parent.height - y - undoBar.height
                contentWidth: width
                contentHeight: empty.y + empty.height + Tokens.space2
                boundsBehavior: Flickable.StopAtBounds
                interactive: overflows
                clip: overflows

                HistoryEmptyState {
                    id: empty
                    objectName: "historyEmpty"
                    history: overlay.history
                    theme: overlay.theme
                    x: Tokens.space5
                    // The position of the icon does not depend on the items below it.
                    y: Math.max(0, Math.min(Math.round(body.height * 0.464) - 14 - list.y,
                                            body.height - list.y - height - Tokens.space2))
                    width: parent.width - 2 * x
                    onSearchCleared: search.forceActiveFocus()
                }
            }
            HistoryProgress {
                id: loading
                objectName: "historyProgress"
                history: overlay.history
                theme: overlay.theme
                x: Tokens.space4
                y: parent.height - undoBar.height - height
                width: parent.width - 2 * x
            }
            UndoBar {
                id: undoBar
                objectName: "historyUndo"
                y: parent.height - height
                width: parent.width - (overlay.compact ? 0 : 1)
                height: implicitHeight
                theme: overlay.theme
                cornerRadius: overlay.cornerRadius
                text: overlay.undoText
                fallback: search
                onUndone: byKey => {
                    overlay.focusesRestored = byKey
                    overlay.undone()
                    overlay.focusesRestored = false
                }
            }

            // Last in the Tab order.
            IconButton {
                objectName: "historyClose"
                x: parent.width - width - Tokens.space2
                y: Math.round((body.headerHeight - height) / 2)
                name: qsTr("Close")
                iconName: "x"
                theme: overlay.theme
                foreground: down || hovered ? theme.text : theme.dimText
                onClicked: overlay.close(visualFocus)
            }
        }
    }

    Item {
        anchors.fill: sheet

        Dialog {
            id: dialog
            objectName: "deleteConfirmation"
            theme: overlay.theme
            cornerRadius: overlay.cornerRadius
            title: qsTr("Delete this thread?")
            text: overlay.history.deleteText
            shortened: overlay.history.deleteTitle
            confirmText: qsTr("Delete")
            open: overlay.history.isDeletePending
            onCancelled: {
                const row = list.currentIndex
                overlay.history.cancelDelete()
                overlay.focusRow(row)
            }
            onConfirmed: {
                // Move the focus off the row being deleted.
                search.forceActiveFocus()
                overlay.history.confirmDelete()
            }
        }
    }
}
