import QtQuick
import Quellora.Panels
import Quellora.Sheets

/// The rows of threads. While the list is being read they come and go, which moves nothing that the
/// user looks at: neither the row with the keyboard nor, once scrolled, the row at the top.
ListView {
    id: list

    required property HistoryModel history
    /// The row that stays where it is while others change, and how far from the top that is.
    property int keptRow: -1
    property real keptY: 0
    /// Has the keyboard meanwhile; the view would give it to the row as a whole.
    property Item keptFocus: null
    property bool keptRing: false
    readonly property bool keepsFocus: keptFocus !== null

    /// The row with the keyboard is no longer there; another one has its place.
    signal focusedRowGone(int row)

    /// At the top, with the current thread's row next in the order of Tab.
    function rest() {
        currentIndex = Math.max(0, history.currentRow())
        positionViewAtBeginning()
    }
    function stayAtTop() {
        // Unless the user was faster.
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
        // Or below the heading of a day.
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
        // The row itself may have gone.
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
        /// A part of the list is in: no key or frame may come before all is back in its place.
        function onProgressChanged() {
            list.returnToPlace()
        }
        function onModelReset() {
            list.forgetPlace()
            list.rest()
        }
    }
}
