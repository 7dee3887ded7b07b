import QtQuick
import Quellora.Panels
import Quellora.Sheets

/// The rows of threads. Rows are inserted and removed while the list loads; the focused row or, once
/// scrolled, the top row keeps its position.
ListView {
    id: list

    required property HistoryModel history
    /// The row whose position is kept while others change, and its distance from the top.
    property int keptRow: -1
    property real keptY: 0
    /// The item to focus again; the view itself would focus the whole row.
    property Item keptFocus: null
    property bool keptRing: false
    readonly property bool keepsFocus: keptFocus !== null

    /// The focused row was removed; @p row is now at its position.
    signal focusedRowGone(int row)

    /// Scrolls to the top and makes the current thread's row the Tab stop.
    function rest() {
        currentIndex = Math.max(0, history.currentRow())
        positionViewAtBeginning()
    }
    function stayAtTop() {
        // Unless the user has scrolled or focused the list meanwhile.
        if (atYBeginning && !activeFocus)
            rest()
    }
    function isInSight(item) {
        return item && item.y + item.height > contentY && item.y < contentY + height
    }
    /// Called before rows change.
    function keepPlace() {
        if (keptRow >= 0)
            return
        if (atYBeginning && !activeFocus) {
            Qt.callLater(stayAtTop)
            return
        }
        // The second position skips a section heading.
        keptRow = activeFocus && isInSight(currentItem)
                  ? currentIndex : Math.max(indexAt(1, contentY), indexAt(1, contentY + 32))
        if (keptRow < 0)
            return
        keptY = itemAtIndex(keptRow).y - contentY
        keptFocus = activeFocus ? Window.activeFocusItem : null
        keptRing = keptFocus !== null && keptFocus.visualFocus === true
        Qt.callLater(returnToPlace)
    }
    function returnToPlace() {
        if (keptRow < 0)
            return
        // The row may have been removed.
        const row = Math.min(keptRow, count - 1)
        positionViewAtIndex(row, ListView.Contain)
        if (row >= 0)
            contentY = itemAtIndex(row).y - keptY
        if (keptFocus)
            keptFocus.forceActiveFocus(keptRing ? Qt.TabFocusReason : Qt.OtherFocusReason)
        forgetPlace()
    }
    function forgetPlace() {
        keptRow = -1
        keptFocus = null
    }

    model: history
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    highlightFollowsCurrentItem: false
    keyNavigationEnabled: false

    Connections {
        target: list.history
        function onRowsAboutToBeInserted() {
            list.keepPlace()
        }
        function onRowsInserted(parent, first, last) {
            if (first <= list.keptRow)
                list.keptRow += last - first + 1
        }
        function onRowsAboutToBeRemoved(parent, first, last) {
            if (list.activeFocus && list.currentIndex >= first && list.currentIndex <= last)
                Qt.callLater(list.focusedRowGone, first)
            else
                list.keepPlace()
        }
        function onRowsRemoved(parent, first, last) {
            if (last < list.keptRow)
                list.keptRow -= last - first + 1
        }
        /// Synchronously after each batch, before the next key event or frame.
        function onProgressChanged() {
            list.returnToPlace()
        }
        function onModelReset() {
            list.forgetPlace()
            list.rest()
        }
    }
}
