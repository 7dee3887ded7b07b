import QtQuick

/// Keyboard navigation among the choices of a group.
QtObject {
    id: group

    /// Parent of the choices, which are a Repeater's delegates, in order.
    required property Repeater choices
    /// Index of the chosen one, or -1.
    property int current: -1

    /// Chooses and focuses another one, wrapping around at the ends.
    function go(index) {
        const count = group.choices.count
        const next = group.choices.itemAt((index + count) % count)
        if (!next)
            return
        next.forceActiveFocus(Qt.TabFocusReason)
        next.picked()
    }
}
