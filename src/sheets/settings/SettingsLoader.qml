import QtQuick
import Quellora.Sheets

/// Builds the settings sheet when it is first asked for and drops it once it has closed.
Loader {
    id: loader

    property SettingsModel settings
    property bool compact: false
    property real cornerRadius: 0
    property Item opener
    readonly property bool isOpen: settings !== null && settings.isOpen
    /// Where the focus starts.
    readonly property Item firstControl: item ? item.firstControl : null
    property bool isNeeded: false

    onIsOpenChanged: {
        if (isOpen)
            isNeeded = true
    }

    active: isNeeded && settings !== null
    sourceComponent: SettingsSheetOverlay {
        settings: loader.settings
        compact: loader.compact
        cornerRadius: loader.cornerRadius
        opener: loader.opener
        // Not from the start, so that it slides in.
        Component.onCompleted: open = Qt.binding(() => loader.isOpen)
        // Queued: it is the sheet itself that says so.
        onClosed: Qt.callLater(() => loader.isNeeded = loader.isOpen)
    }
}
