import QtQuick

/// The order among choices that belong together.
QtObject {
    id: group

    /// Whose children the choices are, in their order; a Repeater's delegates.
    required property Repeater choices
    /// Index of the chosen one, -1 for none.
    property int current: -1

    /// Chooses another one and moves the focus along; past the end it starts again.
    function go(index) {
        const count = group.choices.count
        const next = group.choices.itemAt((index + count) % count)
        if (!next)
            return
        next.forceActiveFocus(Qt.TabFocusReason)
        next.picked()
    }
}
