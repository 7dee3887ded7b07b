import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// Loading progress of the thread list, shown only if loading takes longer than 250 ms.
Column {
    id: loading

    required property HistoryModel history
    property ThemeTokens theme: Tokens.sheetDark
    visible: isLong && isReading
    bottomPadding: Tokens.space3
    spacing: Tokens.space1

    readonly property bool isReading: loading.history.isLoading
                                      && loading.history.isOpen
    property bool isLong: false
    onIsReadingChanged: isLong = false

    Timer {
        interval: 250
        running: loading.isReading
        onTriggered: loading.isLong = true
    }
    Label {
        width: parent.width
        text: loading.history.progressText
        type: Tokens.caption
        color: loading.theme.dimText
        elide: Text.ElideRight
    }
    Rectangle {
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
