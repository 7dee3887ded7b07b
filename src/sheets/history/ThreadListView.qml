import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// The list of threads. When rows are inserted or removed during loading, the focused row or, if
/// scrolled, the top row keeps its position in the viewport.
ListView {
    id: list

    required property HistoryModel history
    /// Height of a row that is not edited, and of a section heading.
    readonly property int rowHeight: 48 + Tokens.growth(18) + Tokens.growth(16)
    readonly property int headingHeight: 32 + Tokens.growth(16)
    /// The row whose position is preserved, or -1, and its distance from the top of the viewport.
    property int anchorRow: -1
    property real anchorOffset: 0
    /// The item to focus again, because the view would focus the row instead of its control.
    property Item savedFocusItem: null
    property bool savedVisualFocus: false
    readonly property bool isRestoringFocus: savedFocusItem !== null

    /// The focused row was removed; @p row now has its index.
    signal focusedRowRemoved(int row)

    /// Scrolls to the top and makes the current thread's row the Tab stop.
    function resetPosition() {
        currentIndex = Math.max(0, history.currentRow())
        positionViewAtBeginning()
    }
    function resetUnlessScrolled() {
        // The user may have scrolled or focused the list in the meantime.
        if (atYBeginning && !activeFocus)
            resetPosition()
    }
    function isInViewport(item) {
        return item && item.y + item.height > contentY && item.y < contentY + height
    }
    /// Call before rows change.
    function savePosition() {
        if (anchorRow >= 0)
            return
        if (atYBeginning && !activeFocus) {
            Qt.callLater(resetUnlessScrolled)
            return
        }
        // The second position skips a section heading.
        anchorRow = activeFocus && isInViewport(currentItem)
                  ? currentIndex : Math.max(indexAt(1, contentY), indexAt(1, contentY + headingHeight))
        if (anchorRow < 0)
            return
        anchorOffset = itemAtIndex(anchorRow).y - contentY
        savedFocusItem = activeFocus ? Window.activeFocusItem : null
        savedVisualFocus = savedFocusItem !== null && savedFocusItem.visualFocus === true
        Qt.callLater(restorePosition)
    }
    function restorePosition() {
        if (anchorRow < 0)
            return
        // The row may have been removed.
        const row = Math.min(anchorRow, count - 1)
        positionViewAtIndex(row, ListView.Contain)
        if (row >= 0)
            contentY = itemAtIndex(row).y - anchorOffset
        if (savedFocusItem)
            savedFocusItem.forceActiveFocus(savedVisualFocus ? Qt.TabFocusReason
                                                             : Qt.OtherFocusReason)
        clearSavedPosition()
    }
    function clearSavedPosition() {
        anchorRow = -1
        savedFocusItem = null
    }

    model: history
    clip: true
    // Rows out of view are not worth the time that creating them takes while the user types.
    cacheBuffer: 0
    boundsBehavior: Flickable.StopAtBounds
    highlightFollowsCurrentItem: false
    keyNavigationEnabled: false

    Connections {
        target: list.history
        function onRowsAboutToBeInserted() {
            list.savePosition()
        }
        function onRowsInserted(parent, first, last) {
            if (first <= list.anchorRow)
                list.anchorRow += last - first + 1
        }
        function onRowsAboutToBeRemoved(parent, first, last) {
            if (list.activeFocus && list.currentIndex >= first && list.currentIndex <= last)
                Qt.callLater(list.focusedRowRemoved, first)
            else
                list.savePosition()
        }
        function onRowsRemoved(parent, first, last) {
            if (last < list.anchorRow)
                list.anchorRow -= last - first + 1
        }
        /// Restores the position synchronously after each batch, before the next key event or frame.
        function onProgressChanged() {
            list.restorePosition()
        }
        function onModelReset() {
            list.clearSavedPosition()
            list.resetPosition()
        }
    }
}
