import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// Progress of loading or searching the threads, shown only if it takes longer than 250 ms.
Column {
    id: loading

    required property HistoryModel history
    property ThemeTokens theme: Tokens.sheetDark
    visible: isLong && isReading
    bottomPadding: Tokens.space3
    spacing: Tokens.space1

    readonly property bool isReading: (history.isLoading || history.isSearching) && history.isOpen
    property bool isLong: false
    onIsReadingChanged: isLong = false

    Timer {
        interval: 250
        running: loading.isReading
        onTriggered: loading.isLong = true
    }
    Label {
        width: parent.width
        text: loading.history.isLoading ? loading.history.progressText : qsTr("Searching…")
        type: Tokens.caption
        color: loading.theme.dimText
        elide: Text.ElideRight
    }
    Rectangle {
        visible: loading.history.isLoading
        width: parent.width
        height: 2
        radius: 1
        color: loading.theme.track

        Rectangle {
            width: parent.width * loading.history.progress
            height: parent.height
            radius: 1
            color: loading.theme.accent
        }
    }
}
