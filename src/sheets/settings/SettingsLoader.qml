import QtQuick
import Quellora.Sheets

/// Creates the settings sheet when it opens and destroys it once it has closed.
Loader {
    id: loader

    property SettingsModel settings
    property string undoText
    property bool compact: false
    property real cornerRadius: 0
    property Item opener
    readonly property bool isOpen: settings !== null && settings.isOpen
    /// The initially focused control.
    readonly property Item firstControl: item ? item.firstControl : null
    property bool isNeeded: false

    signal undone()

    onIsOpenChanged: {
        if (isOpen)
            isNeeded = true
    }

    active: isNeeded && settings !== null
    sourceComponent: SettingsSheetOverlay {
        settings: loader.settings
        undoText: loader.undoText
        compact: loader.compact
        cornerRadius: loader.cornerRadius
        opener: loader.opener
        // Bound after creation, so that opening is animated.
        Component.onCompleted: open = Qt.binding(() => loader.isOpen)
        onUndone: loader.undone()
        // Queued, because the sheet must not be destroyed in its own signal handler.
        onClosed: Qt.callLater(() => loader.isNeeded = loader.isOpen)
    }
}
