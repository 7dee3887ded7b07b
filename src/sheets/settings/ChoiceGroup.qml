import QtQuick

/// Keyboard navigation within a group of choices.
QtObject {
    id: group

    /// The Repeater that creates the choices.
    required property Repeater choices
    /// Index of the current choice, or -1.
    property int current: -1

    /// Chooses and focuses the item at @p index, wrapping around at the ends.
    function moveTo(index) {
        const count = group.choices.count
        const next = group.choices.itemAt((index + count) % count)
        if (!next)
            return
        next.forceActiveFocus(Qt.TabFocusReason)
        next.picked()
    }
}
